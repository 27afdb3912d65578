# Every target of the project builds with warnings as errors, on GCC and Clang alike.
add_library(ostrel_warnings INTERFACE)
target_compile_options(ostrel_warnings INTERFACE -Wall -Wextra -Werror -Wno-missing-field-initializers)
# Clang proves at compile time that members marked OSTREL_GUARDED_BY are only
# touched with their mutex held (see src/platform/thread_annotations.h); GCC
# has no such analysis and the annotations expand to nothing there.
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(ostrel_warnings INTERFACE -Wthread-safety)
endif()
