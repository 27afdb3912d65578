# What `cmake --install` puts under the prefix: the library (static or shared,
# as BUILD_SHARED_LIBS says) as the CMake package `ostrel` with the target
# ostrel::ostrel, a pkg-config file and the public headers. The programs
# (ostrel-cli, ostrel-emulator) add their own rules.
include(CMakePackageConfigHelpers)
if(NOT OSTREL_INSTALL)
  return()
endif()

set(ostrel_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ostrel)
install(TARGETS ${ostrel_installed} EXPORT ostrelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT Development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ostrel DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")
install(EXPORT ostrelTargets NAMESPACE ostrel:: DESTINATION ${ostrel_cmake_dir})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/ostrelConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/ostrelConfig.cmake INSTALL_DESTINATION ${ostrel_cmake_dir})
# Until 5.0 a host built against 4.x runs with any later 4.x.
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/ostrelConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ostrelConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/ostrelConfigVersion.cmake
  DESTINATION ${ostrel_cmake_dir})

# The public headers use nlohmann::json. A shared library brings its other
# dependencies itself; a static one needs them at every link, so they are
# plain requirements, not private ones: with Requires.private a plain
# `--libs` would leave them out, and `--static` would also ask for the static
# archives of libcurl's own dependencies, which Debian does not ship.
set(ostrel_pc_requires "nlohmann_json >= 3.10")
set(ostrel_pc_libs "")
if(NOT BUILD_SHARED_LIBS)
  string(APPEND ostrel_pc_requires ", libcurl, openssl, zlib, libpcre2-8, libutf8proc")
  set(ostrel_pc_libs "-lstdc++ -lm -pthread")
endif()
# The prefix is found from the file's own place, so `cmake --install --prefix`
# and a moved tree keep working.
file(RELATIVE_PATH ostrel_pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" ostrel_pc_to_prefix "${ostrel_pc_to_prefix}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/ostrel.pc.in ${CMAKE_CURRENT_BINARY_DIR}/ostrel.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ostrel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
