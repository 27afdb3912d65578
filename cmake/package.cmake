# ostrel::ostrel: the kind of library BUILD_SHARED_LIBS asks for, under the
# name an installed package gives it, so a project that takes this tree with
# add_subdirectory links it the same way.
if(BUILD_SHARED_LIBS)
  set(ostrel_installed ostrel_shared)
else()
  set(ostrel_installed ostrel)
endif()
add_library(ostrel::ostrel ALIAS ${ostrel_installed})
include(${CMAKE_CURRENT_LIST_DIR}/install.cmake)
