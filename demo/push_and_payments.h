#pragma once
#include "emulator/emulator.h"
#include "ostrel/ostrel.h"

// The push and payment part of the demo: a device token registered, a standard
// and a URL push handled, an offer asked for and bought, the paying state.
void demoPushAndPayments(ostrel::Ostrel& ostrel, ostrel::emulator::Emulator& emulator);
