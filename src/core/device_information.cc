#include "core/device_information.h"

#include <cstdio>

#include "ostrel/ostrel.h"

namespace ostrel {

DeviceInformation::DeviceInformation(const platform::DeviceFactsSnapshot& f)
    : screenHeight(f.screenHeight),
      screenWidth(f.screenWidth),
      sdkVersion(Ostrel::versionString()),
      os(f.os),
      deviceId(f.deviceId),
      model(f.model),
      systemVersion(f.systemVersion),
      deviceModel(f.deviceModel),
      languageCode(f.languageCode),
      timezone(timeZoneText(f.timeZoneOffsetSecs)),
      appIdentifier(f.appIdentifier.empty() ? "unknown" : f.appIdentifier),
      appVersion(f.appVersion.empty() ? "unknown" : f.appVersion),
      countryCode(f.countryCode),
      simCountryCode(f.simCountryCode),
      simOperator(f.simOperator),
      dpi(f.dpi),
      orientation(f.orientation) {}

std::string DeviceInformation::timeZoneText(long offsetSecs) {
  const char* sign = offsetSecs > 0 ? "+" : "-";
  const unsigned long abs = static_cast<unsigned long>(offsetSecs < 0 ? -offsetSecs : offsetSecs);
  char out[32];
  std::snprintf(out, sizeof out, "UTC %s%02lu:%02lu", sign, abs / 3600, (abs / 60) % 60);
  return out;
}

Json DeviceInformation::getDeviceInformationDictionary() const {
  return Json{{"screen_height", screenHeight},
              {"screen_width", screenWidth},
              {"dpi", dpi},
              {"orientation", orientation},
              {"device_id", deviceId},
              {"os", os ? Json(*os) : Json(nullptr)},
              {"model", model},
              {"system_version", systemVersion},
              {"device_model", deviceModel},
              {"language_code", languageCode},
              {"time_zone", timezone},
              {"app_identifier", appIdentifier},
              {"app_version", appVersion},
              {"sdk_version", sdkVersion},
              {"sim_country_code", simCountryCode},
              {"sim_operator_name", simOperator},
              {"country_code", countryCode}};
}

DeviceInformation DeviceInformation::fromDictionary(const Json& d) {
  DeviceInformation info(platform::DeviceFactsSnapshot{});
  if (!d.is_object()) return info;
  auto text = [&](const char* key, std::string& out) {
    if (auto it = d.find(key); it != d.end() && it->is_string()) out = it->get<std::string>();
  };
  auto integer = [&](const char* key, int64_t& out) {
    if (auto it = d.find(key); it != d.end() && it->is_number_integer()) out = it->get<int64_t>();
  };
  integer("screen_height", info.screenHeight);
  integer("screen_width", info.screenWidth);
  if (auto it = d.find("dpi"); it != d.end() && it->is_number()) info.dpi = it->get<float>();
  text("orientation", info.orientation);
  text("device_id", info.deviceId);
  if (auto it = d.find("os"); it != d.end() && it->is_string()) info.os = it->get<std::string>();
  text("model", info.model);
  text("system_version", info.systemVersion);
  text("device_model", info.deviceModel);
  text("language_code", info.languageCode);
  text("time_zone", info.timezone);
  text("app_identifier", info.appIdentifier);
  text("app_version", info.appVersion);
  text("sdk_version", info.sdkVersion);
  text("sim_country_code", info.simCountryCode);
  text("sim_operator_name", info.simOperator);
  text("country_code", info.countryCode);
  return info;
}

std::string DeviceInformation::getDeviceTypeStr() const {
  if (model == "iPad") return "tablet";
  if (model == "iPhone" || model == "iPod") return "phone";
  if (model == "Apple TV") return "Apple TV";
  return "other";
}

bool DeviceInformation::isUnitTesting(platform::DeviceFacts& facts) {
  return facts.snapshot().isUnitTesting;
}

bool OLDeviceUtils::isDevelopmentApp(platform::DeviceFacts& facts) {
  return facts.snapshot().isDevelopmentApp;
}

}  // namespace ostrel
