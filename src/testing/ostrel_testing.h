#pragma once
// What benchmarks and tests may wait on inside a running facade, beyond the
// public API: the queue's own idleness and the intake's progress. Hosts have
// waitUntilPersisted for the promise they need; these are for measuring it.
// The library's own tests also reach the facade's parts through here.
#include <cstdint>
#include <functional>

#include "ostrel/ostrel.h"

namespace ostrel {
class OstrelFacadeImpl;
}

namespace ostrel::testing {

// Until every operation queued so far (appends, flushes) has finished.
void waitUntilIdle(Ostrel& facade);
// Events the intake has accepted since it opened.
uint64_t acceptedCount(Ostrel& facade);
// True when the intake's log is mapped: an event is on disk before its call
// returns, and the observer below is never called.
bool intakeMapsLog(Ostrel& facade);
// Called on the intake's thread with the count of accepted events now on
// disk, after every write; nullptr removes it.
void setPersistedObserver(Ostrel& facade, std::function<void(uint64_t persisted)> observer);
// The components of `facade` (facade/ostrel_facade_impl.h), for tests that
// drive one of them directly.
OstrelFacadeImpl& internals(Ostrel& facade);

}  // namespace ostrel::testing
