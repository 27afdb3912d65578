#pragma once
// The C handle of the process-wide facade, and what every call on it checks first.
#include <atomic>
#include <memory>
#include <mutex>

#include "capi/c_error.h"
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

// A manager of the instance (push, payments), made on first use.
template <class Manager>
ostrel_code_t managerOf(ostrel_t* instance, Result<std::shared_ptr<Manager>> (Ostrel::*get)(),
                        std::shared_ptr<Manager>& out, ostrel_error_t** error) {
  OSTREL_C_CHECK(needInstance(instance, error));
  auto manager = ((*instance->facade).*get)();
  if (!manager) return fail(error, manager.error());
  out = std::move(*manager);
  return OSTREL_OK;
}

}  // namespace ostrel::capi
