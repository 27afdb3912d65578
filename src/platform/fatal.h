#pragma once
#include <string_view>

namespace ostrel {
// A programming error the library cannot continue after: prints and aborts.
[[noreturn]] void fatal(std::string_view message);
}  // namespace ostrel
