#pragma once
// The C handle of the process-wide facade, and what every call on it checks first.
#include <atomic>
#include <memory>
#include <mutex>

#include "ostrel/ostrel.h"
#include "ostrel/ostrel_c.h"
#include "ostrel/user_state_change_listener.h"

struct ostrel_instance {
  std::shared_ptr<ostrel::Ostrel> facade;
  // The library holds the listener weakly; the handle keeps it alive.
  std::mutex mutex;
  std::shared_ptr<ostrel::UserStateChangeListener> listener;
  std::atomic<bool> shutDown{false};
};

namespace ostrel::capi {

ostrel_code_t needInstance(const ostrel_t* instance, ostrel_error_t** error);

}  // namespace ostrel::capi
