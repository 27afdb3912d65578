#pragma once
#include <functional>
#include <string>

#include "ostrel/export.h"
#include "ostrel/result.h"

namespace ostrel::platform {

// Asks the operating system's push service for permission and a device token.
class OSTREL_API RemoteNotifications {
 public:
  // The token's bytes, or why the device cannot receive pushes.
  using Completion = std::function<void(Result<std::string>)>;
  virtual ~RemoteNotifications() = default;
  virtual void registerForRemoteNotifications(Completion completion) = 0;
};

}  // namespace ostrel::platform
