#pragma once
#include <string>

#include "ostrel/json.h"

namespace ostrel::emulator {
// The page at "/": received events and users, newest first, refreshing itself.
// The events given are rendered into the page, so it reads without scripts too.
std::string emulatorPage(const Json& newestEvents);
}  // namespace ostrel::emulator
