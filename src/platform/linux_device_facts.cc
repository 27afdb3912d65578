#include <sys/utsname.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <set>
#include <sstream>

#include "platform/defaults.h"
#include "platform/iso639.h"

namespace ostrel::platform {
namespace {

std::string readFirstLine(const std::string& path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  while (!line.empty() && (line.back() == '\n' || line.back() == ' ')) line.pop_back();
  return line;
}

std::string osReleaseField(const std::string& field) {
  std::ifstream in("/etc/os-release");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind(field + "=", 0) != 0) continue;
    std::string value = line.substr(field.size() + 1);
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'')) {
      value = value.substr(1, value.size() - 2);
    }
    return value;
  }
  return "";
}

// The first locale variable set: "it_IT.UTF-8" -> ("it", "IT").
std::pair<std::string, std::string> localeParts() {
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* v = std::getenv(name);
    if (v == nullptr || *v == '\0') continue;
    std::string locale = v;
    locale = locale.substr(0, locale.find_first_of(".@"));
    if (locale == "C" || locale == "POSIX") return {"en", ""};
    auto sep = locale.find_first_of("_-");
    if (sep == std::string::npos) return {locale, ""};
    return {locale.substr(0, sep), locale.substr(sep + 1)};
  }
  return {"en", ""};
}

class LinuxDeviceFacts final : public DeviceFacts {
 public:
  LinuxDeviceFacts(std::shared_ptr<KeyValueStore> settings, std::shared_ptr<Crypto> crypto)
      : settings_(std::move(settings)), crypto_(std::move(crypto)) {}

  DeviceFactsSnapshot snapshot() override {
    DeviceFactsSnapshot s;
    struct utsname u {};
    ::uname(&u);
    std::string name = osReleaseField("NAME");
    s.os = name.empty() ? std::string(u.sysname) : name;
    s.systemVersion = osReleaseField("VERSION_ID");
    if (s.systemVersion.empty()) s.systemVersion = u.release;
    s.model = "Desktop";
    s.deviceModel = readFirstLine("/sys/class/dmi/id/product_name");
    if (s.deviceModel.empty()) s.deviceModel = u.machine;
    auto [language, country] = localeParts();
    s.languageCode = iso639Code(language);
    s.countryCode = country;
    s.deviceId = deviceIdentifier();
    std::time_t now = std::time(nullptr);
    std::tm tm{};
    localtime_r(&now, &tm);
    s.timeZoneOffsetSecs = tm.tm_gmtoff;
    const char* isTest = std::getenv("isTest");
    s.isUnitTesting = isTest != nullptr && std::string(isTest) == "true";
    return s;
  }

 private:
  // Random, made once per installation and kept in the settings.
  std::string deviceIdentifier() {
    static const char* kKey = "OstrelDeviceIdentifier";
    if (auto stored = settings_->get(kKey)) {
      if (const auto* text = std::get_if<std::string>(&*stored); text && !text->empty())
        return *text;
    }
    std::string bytes = crypto_->randomBytes(16);
    static const char* hex = "0123456789ABCDEF";
    std::string id;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      if (i == 4 || i == 6 || i == 8 || i == 10) id += '-';
      auto b = static_cast<unsigned char>(bytes[i]);
      id += hex[b >> 4];
      id += hex[b & 0xF];
    }
    settings_->set(kKey, id);
    return id;
  }

  std::shared_ptr<KeyValueStore> settings_;
  std::shared_ptr<Crypto> crypto_;
};

}  // namespace

std::shared_ptr<DeviceFacts> makeLinuxDeviceFacts(std::shared_ptr<KeyValueStore> settings,
                                                  std::shared_ptr<Crypto> crypto) {
  return std::make_shared<LinuxDeviceFacts>(std::move(settings), std::move(crypto));
}

}  // namespace ostrel::platform
