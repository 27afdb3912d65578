#pragma once
// The library's any-valued map: JSON whose objects keep insertion order, so that
// key order on the wire is the order in which keys were added.
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "ostrel/export.h"

namespace ostrel {

using Json = nlohmann::ordered_json;

// Compact JSON text. Never throws: invalid UTF-8 inside texts is replaced by U+FFFD.
OSTREL_API std::string dumpJson(const Json& value);

// Parses outside input. Never throws: text that is not JSON, is not valid UTF-8,
// or nests deeper than maxDepth yields nothing.
OSTREL_API std::optional<Json> parseJson(std::string_view text, int maxDepth = 256);

}  // namespace ostrel
