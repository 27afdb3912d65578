#pragma once
#include "ostrel/json.h"

namespace ostrel {

// A float as JSON: the double of its shortest decimal form, so 1.1f goes out
// as 1.1 and not as 1.100000023841858.
Json floatJson(float value);

}  // namespace ostrel
