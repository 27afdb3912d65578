#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "ostrel/export.h"

namespace ostrel::platform {

// A date stored in the settings: seconds since 1970.
struct SettingsDate {
  double secondsSince1970 = 0;
  bool operator==(const SettingsDate&) const = default;
};
// Bytes stored in the settings (a data blob).
struct OSTREL_API SettingsData {
  std::string bytes;
  bool operator==(const SettingsData&) const = default;
};

// A typed settings value: text, boolean, integer, float, double, date or data.
using SettingsValue =
    std::variant<std::string, bool, int64_t, float, double, SettingsDate, SettingsData>;

// Persistent key-value settings of the installation.
class OSTREL_API KeyValueStore {
 public:
  virtual ~KeyValueStore() = default;
  virtual std::optional<SettingsValue> get(const std::string& key) const = 0;
  virtual void set(const std::string& key, SettingsValue value) = 0;
  virtual void remove(const std::string& key) = 0;
  // Removes every key.
  virtual void removeAll() = 0;
  // Makes pending writes durable now.
  virtual void synchronize() = 0;
};

}  // namespace ostrel::platform
