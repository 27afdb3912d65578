#pragma once
// The host's AppInfo laid over the device facts of its platform.
#include <memory>

#include "ostrel/app_info.h"
#include "ostrel/platform/device_facts.h"

namespace ostrel::platform {

std::shared_ptr<DeviceFacts> withAppInfo(std::shared_ptr<DeviceFacts> facts, AppInfo app);

}  // namespace ostrel::platform
