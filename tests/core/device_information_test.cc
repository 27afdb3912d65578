#include "core/device_information.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/iso639.h"
#include "support/test_platform.h"

namespace ostrel {
namespace {

TEST(DeviceInformationTest, TimeZoneText) {
  struct Case {
    long offset;
    std::string text;
  };
  const Case cases[] = {{-16200, "UTC -04:30"}, {0, "UTC -00:00"}, {19800, "UTC +05:30"}};
  for (const auto& c : cases) EXPECT_EQ(DeviceInformation::timeZoneText(c.offset), c.text);
}

TEST(DeviceInformationTest, DictionaryKeysInOrderAndRoundTrip) {
  platform::DeviceFactsSnapshot facts;
  facts.model = "iPad";
  facts.deviceId = "DEV";
  facts.os = "Debian GNU/Linux";
  facts.appVersion = "";
  facts.dpi = 2.0f;
  DeviceInformation info(facts);
  EXPECT_EQ(info.appVersion, "unknown");
  EXPECT_EQ(info.getDeviceTypeStr(), "tablet");
  Json d = info.getDeviceInformationDictionary();
  std::vector<std::string> keys;
  for (const auto& [k, v] : d.items()) keys.push_back(k);
  EXPECT_EQ(keys, (std::vector<std::string>{
                      "screen_height", "screen_width", "dpi", "orientation", "device_id", "os",
                      "model", "system_version", "device_model", "language_code", "time_zone",
                      "app_identifier", "app_version", "sdk_version", "sim_country_code",
                      "sim_operator_name", "country_code"}));
  EXPECT_TRUE(d["screen_height"].is_number());
  EXPECT_TRUE(d["dpi"].is_number());
  EXPECT_EQ(DeviceInformation::fromDictionary(d), info);
}

TEST(DeviceInformationTest, LinuxFactsKeepOneDeviceIdentifier) {
  test::TestPlatform platform;
  DeviceInformation first(platform.platform().deviceFacts->snapshot());
  DeviceInformation second(platform.platform().deviceFacts->snapshot());
  EXPECT_FALSE(first.deviceId.empty());
  EXPECT_EQ(first.deviceId, second.deviceId) << "kept in the settings";
  EXPECT_TRUE(first.os.has_value());
  for (const char* value : {"true", "1", ""}) {
    ::setenv("isTest", value, 1);
    EXPECT_EQ(DeviceInformation::isUnitTesting(*platform.platform().deviceFacts),
              std::string(value) == "true")
        << value;
  }
  ::unsetenv("isTest");
}

TEST(Iso639Test, LocaleLanguagesMapToTheirCode) {
  EXPECT_EQ(platform::iso639Code("ITA"), "it");
  EXPECT_EQ(platform::iso639Code("deu"), "de");
  EXPECT_EQ(platform::iso639Code("xx"), "");
}

}  // namespace
}  // namespace ostrel
