#pragma once
#include <string>
#include <string_view>

namespace ostrel::platform {

// The ISO 639-1 code of a locale language ("it", "ita" and "IT" all give "it");
// empty when the language is not in the table.
std::string iso639Code(std::string_view language);

}  // namespace ostrel::platform
