#pragma once
// A snapshot of the device, the application and the library, taken once when
// the facade starts and sent with session events as a snake_case dictionary.
#include <cstdint>
#include <optional>
#include <string>

#include "ostrel/json.h"
#include "ostrel/platform/device_facts.h"

namespace ostrel {

class DeviceInformation {
 public:
  // Empty: what a decoder fills.
  DeviceInformation() = default;
  // The facts of the platform's snapshot.
  explicit DeviceInformation(const platform::DeviceFactsSnapshot& facts);
  // Rebuilds a snapshot from its dictionary (a stored session event).
  static DeviceInformation fromDictionary(const Json& dictionary);

  Json getDeviceInformationDictionary() const;
  // "tablet" for iPad, "phone" for iPhone and iPod, "Apple TV" as is, else "other".
  std::string getDeviceTypeStr() const;
  // "UTC +01:00", "UTC -04:30"; a zero offset reads "UTC -00:00".
  static std::string timeZoneText(long offsetSecs);
  static bool isUnitTesting(platform::DeviceFacts& facts);

  int64_t screenHeight = 0;
  int64_t screenWidth = 0;
  std::string sdkVersion;
  std::optional<std::string> os;
  int64_t retries = 0;
  std::string deviceId;
  std::string model;
  std::string systemVersion;
  std::string deviceModel;
  std::string languageCode;
  std::string timezone;
  std::string appIdentifier;
  std::string appVersion;
  std::string countryCode;
  std::string simCountryCode;
  std::string simOperator;
  float dpi = 1.0f;
  std::string orientation;

  bool operator==(const DeviceInformation&) const = default;
};

class OLDeviceUtils {
 public:
  static bool isDevelopmentApp(platform::DeviceFacts& facts);
};

}  // namespace ostrel
