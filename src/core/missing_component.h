#pragma once
// The errors of a component that the facade has not created (or has shut down).
#include <string>

#include "ostrel/ol_error.h"

namespace ostrel {

inline OLError notInitialized(std::string message) {
  return OLError::LocalError(LocalErrorCodes::OstrelNotInitialized, std::move(message));
}
inline OLError missingInternalStatus() {
  return notInitialized("Ostrel not initialized. Missing internal status");
}
inline OLError missingEventQueueManager() {
  return notInitialized("Ostrel not initialized. Missing Event Queue Manager");
}

}  // namespace ostrel
