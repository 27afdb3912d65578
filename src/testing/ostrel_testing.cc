#include "ostrel_testing.h"

#include "facade/ostrel_facade_impl.h"
#include "queue/event_intake.h"
#include "queue/ol_queue_manager.h"

namespace ostrel::testing {

OstrelFacadeImpl& internals(Ostrel& facade) {
  return OstrelFacadeImpl::of(facade);
}

void waitUntilIdle(Ostrel& facade) {
  internals(facade).eventManager->waitUntilIdle();
}

uint64_t acceptedCount(Ostrel& facade) {
  return internals(facade).eventManager->intake()->acceptedCount();
}

bool intakeMapsLog(Ostrel& facade) {
  return internals(facade).eventManager->intake()->mapsLog();
}

void setPersistedObserver(Ostrel& facade, std::function<void(uint64_t)> observer) {
  internals(facade).eventManager->intake()->setPersistedObserver(std::move(observer));
}

}  // namespace ostrel::testing
