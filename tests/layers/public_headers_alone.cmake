# Compiles each public header alone, with nothing but include/ (and the system
# folders of the library's public dependencies) on the path: a host that
# includes any one of them needs no other include first, and none reaches into
# src/. ostrel_c.h is compiled as C11 too, for C hosts. Last, the umbrella
# header alone must carry every facade call the README shows.
#   cmake -DINCLUDE_DIR=... -DSYSTEM_DIRS=a;b -DCXX=... -DCC=... -DUMBRELLA_HOST=...
#         -DWORK_DIR=... -P public_headers_alone.cmake
set(strict -Wall -Wextra -Werror -pedantic -fsyntax-only)
set(paths -I${INCLUDE_DIR})
foreach(dir IN LISTS SYSTEM_DIRS)
  list(APPEND paths -isystem ${dir})
endforeach()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
set(failed "")

# compile(<label> <source> <compiler and flags...>)
function(compile label source)
  execute_process(COMMAND ${ARGN} ${source} RESULT_VARIABLE status OUTPUT_VARIABLE out
                  ERROR_VARIABLE out)
  if(NOT status EQUAL 0)
    message("${label} does not compile alone:\n${out}")
    set(failed "${failed} ${label}" PARENT_SCOPE)
  endif()
endfunction()

file(GLOB_RECURSE headers RELATIVE ${INCLUDE_DIR} ${INCLUDE_DIR}/ostrel/*.h)
list(SORT headers)
foreach(header IN LISTS headers)
  string(MAKE_C_IDENTIFIER ${header} name)
  set(source ${WORK_DIR}/${name}.cc)
  file(WRITE ${source} "#include <${header}>\n")
  compile(${header} ${source} ${CXX} -std=c++20 ${strict} ${paths})
  if(header STREQUAL "ostrel/ostrel_c.h")
    set(source ${WORK_DIR}/${name}.c)
    file(WRITE ${source} "#include <${header}>\n")
    compile("${header} (C11)" ${source} ${CC} -std=c11 ${strict} ${paths})
  endif()
endforeach()
compile(${UMBRELLA_HOST} ${UMBRELLA_HOST} ${CXX} -std=c++20 ${strict} ${paths})

list(LENGTH headers count)
if(failed)
  message(FATAL_ERROR "not self-contained:${failed}")
endif()
message("${count} public headers and the umbrella host compile alone")
