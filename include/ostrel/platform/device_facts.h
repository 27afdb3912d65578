#pragma once
// Facts about the device and the host application. A phone host supplies its
// own; the desktop default reads what Linux offers.
#include <optional>
#include <string>

#include "ostrel/export.h"

namespace ostrel::platform {

struct DeviceFactsSnapshot {
  int64_t screenHeight = 0;
  int64_t screenWidth = 0;
  float dpi = 1.0f;
  std::string orientation = "unknown";
  std::string deviceId;
  std::optional<std::string> os;
  std::string model;
  std::string systemVersion;
  std::string deviceModel;
  std::string languageCode;
  std::string countryCode;
  std::string appIdentifier = "unknown";
  std::string appVersion = "unknown";
  std::string appBuild = "unknown";
  std::string simCountryCode;
  std::string simOperator;
  // Offset of the local time zone from UTC, in seconds, now.
  long timeZoneOffsetSecs = 0;
  // Whether the running application is a development build.
  bool isDevelopmentApp = false;
  // Whether the process runs under unit tests (the desktop default: the
  // environment variable "isTest" equals "true").
  bool isUnitTesting = false;
};

class OSTREL_API DeviceFacts {
 public:
  virtual ~DeviceFacts() = default;
  virtual DeviceFactsSnapshot snapshot() = 0;
};

}  // namespace ostrel::platform
