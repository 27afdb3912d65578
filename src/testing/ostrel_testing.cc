#include "ostrel_testing.h"

#include "facade/ostrel_facade_impl.h"
#include "queue/event_intake.h"
#include "queue/ol_queue_manager.h"

namespace ostrel::testing {

void waitUntilIdle(Ostrel& facade) {
  facade.impl().eventManager->waitUntilIdle();
}

uint64_t acceptedCount(Ostrel& facade) {
  return facade.impl().eventManager->intake()->acceptedCount();
}

bool intakeMapsLog(Ostrel& facade) {
  return facade.impl().eventManager->intake()->mapsLog();
}

void setPersistedObserver(Ostrel& facade, std::function<void(uint64_t)> observer) {
  facade.impl().eventManager->intake()->setPersistedObserver(std::move(observer));
}

}  // namespace ostrel::testing
