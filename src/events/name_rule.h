#pragma once
#include <string>

namespace ostrel {

// Whether an app-chosen event name has a match of "^[\w-]{1,32}$" (\w in the
// Unicode sense, marks and joiners included; "^" and "$" also at every Unicode
// line break), searched over as many UTF-16 units as the name has
// user-perceived characters.
bool matchesEventNameRule(const std::string& name);

// Whether an attached user identifier matches "^[CAOUE]_\S+$".
bool matchesAttachedUserRule(const std::string& userId);

}  // namespace ostrel
