#pragma once
// The shapes of the callbacks through which asynchronous calls answer.
#include <functional>
#include <optional>
#include <string>

#include "ostrel/json.h"
#include "ostrel/ol_error.h"

namespace ostrel {

using ErrorCallback = std::function<void(std::optional<OLError>)>;
using DictionaryCallback = std::function<void(std::optional<OLError>, std::optional<Json>)>;
using TokenCallback = std::function<void(std::optional<OLError>, std::optional<std::string>)>;

}  // namespace ostrel
