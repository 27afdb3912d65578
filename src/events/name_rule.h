#pragma once
#include <string>

namespace ostrel {

// Whether an app-chosen event name has a match of "^[\w-]{1,32}$" (Unicode \w,
// "^" and "$" also at line breaks), searched over as many UTF-16 units as the
// name has user-perceived characters.
bool matchesEventNameRule(const std::string& name);

// Whether an attached user identifier matches "^[CAOUE]_\S+$".
bool matchesAttachedUserRule(const std::string& userId);

}  // namespace ostrel
