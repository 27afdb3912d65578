#pragma once
// Typed key-value settings over the platform's settings store. Plain values
// (text, boolean, integer, float, double, date) are stored as themselves; any
// other type as its JSON encoding; enumerations with a raw value as that value.
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

#include "ostrel/json.h"
#include "ostrel/platform/key_value_store.h"

namespace ostrel {

class DefaultsKey {};

template <class T>
class Key : public DefaultsKey {
 public:
  explicit Key(std::string key) : _key(std::move(key)) {}
  std::string _key;
};

// A date value in the settings.
using OLDate = platform::SettingsDate;

namespace detail {
template <class T>
inline constexpr bool kIsPlainSetting =
    std::is_same_v<T, std::string> || std::is_same_v<T, bool> || std::is_same_v<T, int64_t> ||
    std::is_same_v<T, float> || std::is_same_v<T, double> || std::is_same_v<T, OLDate>;

// An enumeration with a raw value offers rawValue(e) and T-from-raw via
// RawValueTraits<T>; specialise it to store an enumeration by its raw value.
template <class T>
struct RawValueTraits {
  static constexpr bool kEnabled = false;
};
}  // namespace detail

class OLDefault {
 public:
  explicit OLDefault(std::shared_ptr<platform::KeyValueStore> userDefaults)
      : userDefaults_(std::move(userDefaults)) {}

  template <class T>
  void set(const T& value, const Key<T>& key) {
    if constexpr (detail::kIsPlainSetting<T>) {
      userDefaults_->set(key._key, value);
    } else if constexpr (detail::RawValueTraits<T>::kEnabled) {
      using Raw = typename detail::RawValueTraits<T>::Raw;
      set<Raw>(detail::RawValueTraits<T>::toRaw(value), Key<Raw>(key._key));
    } else {
      // An encoding failure is dropped: nothing is stored.
      try {
        Json encoded = value;
        userDefaults_->set(key._key, platform::SettingsData{dumpJson(encoded)});
        userDefaults_->synchronize();
      } catch (const Json::exception&) {
      }
    }
  }

  template <class T>
  std::optional<T> get(const Key<T>& key) const {
    auto stored = userDefaults_->get(key._key);
    if (!stored) return std::nullopt;
    if constexpr (detail::kIsPlainSetting<T>) {
      if (const T* v = std::get_if<T>(&*stored)) return *v;
      return std::nullopt;
    } else if constexpr (detail::RawValueTraits<T>::kEnabled) {
      using Raw = typename detail::RawValueTraits<T>::Raw;
      auto raw = get<Raw>(Key<Raw>(key._key));
      if (!raw) return std::nullopt;
      return detail::RawValueTraits<T>::fromRaw(*raw);
    } else {
      const auto* blob = std::get_if<platform::SettingsData>(&*stored);
      if (blob == nullptr) return std::nullopt;
      auto parsed = parseJson(blob->bytes);
      if (!parsed) return std::nullopt;
      try {
        return parsed->template get<T>();
      } catch (const Json::exception&) {
        return std::nullopt;
      }
    }
  }

  template <class T>
  bool has(const Key<T>& key) const {
    return userDefaults_->get(key._key).has_value();
  }

  template <class T>
  void clear(const Key<T>& key) {
    userDefaults_->remove(key._key);
    userDefaults_->synchronize();
  }

  void synchronize() { userDefaults_->synchronize(); }

  // Removes the whole settings domain of the bundle; nothing without an identifier.
  void removeAll(const std::optional<std::string>& bundleIdentifier);

 private:
  std::shared_ptr<platform::KeyValueStore> userDefaults_;
};

}  // namespace ostrel
