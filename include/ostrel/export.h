#pragma once
// OSTREL_API marks what the shared library exports to C++ hosts. The library
// is compiled with hidden visibility, so a declaration without the mark stays
// inside it and may change within a major version; one with it is part of the
// ABI that the SONAME's major version stands for. Static builds ignore it.
#if defined(__GNUC__) || defined(__clang__)
#define OSTREL_API __attribute__((visibility("default")))
#else
#define OSTREL_API
#endif
