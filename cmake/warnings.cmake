# Every target of the project builds with warnings as errors, on GCC and Clang alike.
add_library(ostrel_warnings INTERFACE)
target_compile_options(ostrel_warnings INTERFACE -Wall -Wextra -Werror -Wno-missing-field-initializers)
