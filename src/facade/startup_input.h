#pragma once
// What a host hands the facade at start-up is input like any other: checked
// before anything is built, so that a bad value is a clear error at start-up
// and never a stop of the process later.
#include <optional>

#include "ostrel/ostrel.h"

namespace ostrel {

// The deployment (and, for the default HTTP client, the network overrides)
// are valid, and a distribution group among the external parameters can
// travel in a header. The app identity's texts, which go into JSON bodies,
// are UTF-8 without control characters and of a sane length.
Result<void> checkStartupInput(const Platform& platform,
                               const std::optional<ExternalParameters>& dictParameters);

}  // namespace ostrel
