#pragma once
// User-perceived characters (extended grapheme clusters) of UTF-8 text.
#include <cstddef>
#include <string>
#include <string_view>

namespace ostrel {

// Number of grapheme clusters; the text must be valid UTF-8.
std::size_t graphemeCount(std::string_view text);
// The first `max` grapheme clusters of the text (the whole text when shorter).
std::string truncateGraphemes(std::string_view text, std::size_t max);

}  // namespace ostrel
