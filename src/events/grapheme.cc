#include "events/grapheme.h"

#include <utf8proc.h>

namespace ostrel {
namespace {

// Walks the clusters and answers the byte offset after the first `max` of them
// (or the text's end), and how many it saw.
std::pair<std::size_t, std::size_t> walk(std::string_view text, std::size_t max) {
  auto* p = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  auto left = static_cast<utf8proc_ssize_t>(text.size());
  std::size_t offset = 0, clusters = 0;
  utf8proc_int32_t previous = -1;
  utf8proc_int32_t state = 0;
  while (left > 0) {
    utf8proc_int32_t cp;
    utf8proc_ssize_t n = utf8proc_iterate(p + offset, left, &cp);
    if (n <= 0) {  // not UTF-8: count each remaining byte on its own
      n = 1;
      cp = -1;
    }
    const bool breaks =
        previous < 0 || cp < 0 || utf8proc_grapheme_break_stateful(previous, cp, &state);
    if (breaks) {
      if (clusters == max) return {offset, clusters};
      ++clusters;
    }
    previous = cp < 0 ? -1 : cp;
    offset += static_cast<std::size_t>(n);
    left -= n;
  }
  return {offset, clusters};
}

}  // namespace

std::size_t graphemeCount(std::string_view text) {
  return walk(text, SIZE_MAX).second;
}

std::string truncateGraphemes(std::string_view text, std::size_t max) {
  return std::string(text.substr(0, walk(text, max).first));
}

}  // namespace ostrel
