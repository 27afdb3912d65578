#pragma once
// The Platform a C host's configuration makes.
#include "capi/c_config.h"
#include "ostrel/platform.h"
#include "ostrel/result.h"

namespace ostrel::capi {

// The defaults, with: the deployment (the environment's first when opted in,
// then the explicit settings), checked as the facade checks it; the storage
// folder; the log callback; the app identity in the device facts.
Result<Platform> platformFor(const ostrel_config& config);

}  // namespace ostrel::capi
