#include <map>
#include <mutex>

#include "ostrel/json.h"
#include "platform/defaults.h"

namespace ostrel::platform {
namespace {

// Whether JSON can carry the text as it is (it is UTF-8).
bool isJsonText(const std::string& text) {
  try {
    (void)Json(text).dump();
    return true;
  } catch (const Json::type_error&) {
    return false;
  }
}

// On disk: one JSON object, each entry {"type": ..., "value": ...}, so that a
// value reads back with the type it was written with. A text that is not
// UTF-8 is kept as {"type": "string", "base64": ...}, byte for byte.
Json encodeValue(const SettingsValue& value, const Crypto& crypto) {
  return std::visit(
      [&](const auto& v) -> Json {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::string>) {
          if (!isJsonText(v)) return {{"type", "string"}, {"base64", crypto.base64Encode(v)}};
          return {{"type", "string"}, {"value", v}};
        }
        if constexpr (std::is_same_v<T, bool>) return {{"type", "bool"}, {"value", v}};
        if constexpr (std::is_same_v<T, int64_t>) return {{"type", "int"}, {"value", v}};
        if constexpr (std::is_same_v<T, float>) return {{"type", "float"}, {"value", v}};
        if constexpr (std::is_same_v<T, double>) return {{"type", "double"}, {"value", v}};
        if constexpr (std::is_same_v<T, SettingsDate>)
          return {{"type", "date"}, {"value", v.secondsSince1970}};
        if constexpr (std::is_same_v<T, SettingsData>)
          return {{"type", "data"}, {"value", crypto.base64Encode(v.bytes)}};
      },
      value);
}

std::optional<SettingsValue> decodeValue(const Json& entry, const Crypto& crypto) {
  if (!entry.is_object()) return std::nullopt;
  auto type = entry.find("type");
  if (type == entry.end() || !type->is_string()) return std::nullopt;
  const std::string& t = type->get_ref<const std::string&>();
  if (auto bytes = entry.find("base64"); t == "string" && bytes != entry.end()) {
    if (!bytes->is_string()) return std::nullopt;
    if (auto text = crypto.base64Decode(bytes->get<std::string>())) return *text;
    return std::nullopt;
  }
  auto value = entry.find("value");
  if (value == entry.end()) return std::nullopt;
  if (t == "string" && value->is_string()) return value->get<std::string>();
  if (t == "bool" && value->is_boolean()) return value->get<bool>();
  if (t == "int" && value->is_number_integer()) return value->get<int64_t>();
  if (t == "float" && value->is_number()) return value->get<float>();
  if (t == "double" && value->is_number()) return value->get<double>();
  if (t == "date" && value->is_number()) return SettingsDate{value->get<double>()};
  if (t == "data" && value->is_string()) {
    if (auto bytes = crypto.base64Decode(value->get<std::string>())) return SettingsData{*bytes};
  }
  return std::nullopt;
}

class FileSettingsStore final : public KeyValueStore {
 public:
  FileSettingsStore(std::shared_ptr<FileSystem> files, std::string path)
      : files_(std::move(files)), path_(std::move(path)), crypto_(makeOpenSslCrypto()) {
    load();
  }

  std::optional<SettingsValue> get(const std::string& key) const override {
    std::lock_guard lock(mutex_);
    auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    return it->second;
  }

  void set(const std::string& key, SettingsValue value) override {
    std::lock_guard lock(mutex_);
    values_[key] = std::move(value);
    persist();
  }

  void remove(const std::string& key) override {
    std::lock_guard lock(mutex_);
    if (values_.erase(key) > 0) persist();
  }

  void removeAll() override {
    std::lock_guard lock(mutex_);
    values_.clear();
    persist();
  }

  // Every write already replaced the file; nothing is pending.
  void synchronize() override {}

 private:
  // A missing or corrupt file reads as empty settings.
  void load() {
    auto bytes = files_->readFile(path_);
    if (!bytes) return;
    auto parsed = parseJson(*bytes);
    if (!parsed || !parsed->is_object()) return;
    for (const auto& [key, entry] : parsed->items()) {
      if (auto value = decodeValue(entry, *crypto_)) values_[key] = std::move(*value);
    }
  }

  void persist() {
    Json doc = Json::object();
    for (const auto& [key, value] : values_) doc[key] = encodeValue(value, *crypto_);
    auto slash = path_.find_last_of('/');
    if (slash != std::string::npos) (void)files_->createDirectories(path_.substr(0, slash));
    // A failed write leaves the previous file whole; the in-memory value still serves reads.
    (void)files_->writeFileAtomic(path_, dumpJson(doc));
  }

  std::shared_ptr<FileSystem> files_;
  std::string path_;
  std::shared_ptr<Crypto> crypto_;
  mutable std::mutex mutex_;
  std::map<std::string, SettingsValue> values_;
};

}  // namespace

std::shared_ptr<KeyValueStore> makeFileSettingsStore(std::shared_ptr<FileSystem> files,
                                                     std::string path) {
  return std::make_shared<FileSettingsStore>(std::move(files), std::move(path));
}

}  // namespace ostrel::platform
