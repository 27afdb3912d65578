#pragma once
#include <string>

#include "emulator/emulator_store.h"
#include "ostrel/json.h"

namespace ostrel::emulator {
// The page at "/": events per second over the last minutes, the received
// events (filtered by user, session and event type), the users and the
// faults served, refreshed live from /_emulator/live. The page carries
// everything it needs inline. The events given are rendered into it, with the
// filter's values in its form, so it reads (and filters) without scripts too.
std::string emulatorPage(const Json& newestEvents, const EventFilter& filter);
}  // namespace ostrel::emulator
