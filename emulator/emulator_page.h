#pragma once
#include <string>

namespace ostrel::emulator {
// The page at "/": received events and users, newest first, refreshing itself.
const std::string& emulatorPage();
}  // namespace ostrel::emulator
