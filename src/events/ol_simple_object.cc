#include "ostrel/ol_simple_object.h"

#include <cmath>

#include "archive/keyed_archive.h"
#include "core/ostrel_api_endpoint.h"
#include "events/float_json.h"
#include "events/grapheme.h"
#include "transport/ol_connector.h"

namespace ostrel {
namespace {

constexpr const char* kPropertiesKey = "simple_object";
// Inside the archive a float is kept apart from a double as {"$float": value};
// a bag never holds maps, so the wrapper cannot be mistaken for a value.
constexpr const char* kFloatTag = "$float";

Json toJson(const SimpleValue& value) {
  return std::visit(
      [](const auto& v) -> Json {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, SimpleNull>) {
          return Json(nullptr);
        } else if constexpr (std::is_same_v<T, float>) {
          return floatJson(v);
        } else {
          return Json(v);
        }
      },
      value);
}

Json toArchived(const SimpleValue& value) {
  if (const float* f = std::get_if<float>(&value)) {
    return Json{{kFloatTag, static_cast<double>(*f)}};
  }
  return toJson(value);
}

// The archived size of one value, archived alone.
std::size_t archivedSize(const SimpleValue& value) {
  ArchiveWriter writer("Ostrel.SimpleValue");
  writer.encodeJson("root", toArchived(value));
  return writer.bytes().size();
}

OLError notSimple(const std::string& key, const Json& value) {
  return OLError::LocalError(LocalErrorCodes::SimpleObjectCreationError,
                             "Value is not simple! [String|Int|Float/Double|Bool|null]",
                             std::nullopt, Json{{key, value}});
}

bool finite(const SimpleValue& value) {
  if (const double* d = std::get_if<double>(&value)) return std::isfinite(*d);
  if (const float* f = std::get_if<float>(&value)) return std::isfinite(*f);
  return true;
}

}  // namespace

Result<SimpleValue> OLSimpleObject::getCheckedProperty(const std::string& key, const Json& value) {
  if (value.is_string()) {
    const auto& text = value.get_ref<const std::string&>();
    if (!isValidUtf8(text)) return notSimple(key, value);
    if (text.size() > static_cast<std::size_t>(MAX_STR_LENGTH) &&
        graphemeCount(text) > static_cast<std::size_t>(MAX_STR_LENGTH)) {
      return SimpleValue(truncateGraphemes(text, MAX_STR_LENGTH));
    }
    return SimpleValue(text);
  }
  if (value.is_number_integer()) {
    if (value.is_number_unsigned() && value.get<uint64_t>() > static_cast<uint64_t>(INT64_MAX)) {
      return SimpleValue(static_cast<double>(value.get<uint64_t>()));
    }
    return SimpleValue(value.get<int64_t>());
  }
  if (value.is_number_float()) return SimpleValue(value.get<double>());
  if (value.is_boolean()) return SimpleValue(value.get<bool>());
  if (value.is_null()) return SimpleValue(SimpleNull{});
  return notSimple(key, value);
}

Result<void> OLSimpleObject::set(const std::string& key, SimpleValue value) {
  if (auto* text = std::get_if<std::string>(&value)) {
    if (!isValidUtf8(*text)) return notSimple(key, Json(*text));
    if (text->size() > static_cast<std::size_t>(MAX_STR_LENGTH)) {
      *text = truncateGraphemes(*text, MAX_STR_LENGTH);
    }
  }
  if (!finite(value)) return notSimple(key, toJson(value));
  const std::size_t actual = length();
  const std::size_t propertySize = archivedSize(value);
  if (actual + propertySize > static_cast<std::size_t>(MAX_SO_SIZE)) {
    return OLError::LocalError(LocalErrorCodes::SimpleObjectCreationError, "Size Exceeded Maximum",
                               std::nullopt,
                               Json{{"actual_size", length()},
                                    {"property_size", propertySize},
                                    {"MAX_SO_SIZE", MAX_SO_SIZE}});
  }
  for (auto& [k, v] : properties_) {
    if (k == key) {
      v = std::move(value);
      return {};
    }
  }
  properties_.emplace_back(key, std::move(value));
  return {};
}

Result<void> OLSimpleObject::setString(const std::string& key, const std::string& value) {
  return set(key, value);
}
Result<void> OLSimpleObject::setInt(const std::string& key, int64_t value) {
  return set(key, value);
}
Result<void> OLSimpleObject::setFloat(const std::string& key, float value) {
  return set(key, value);
}
Result<void> OLSimpleObject::setDouble(const std::string& key, double value) {
  return set(key, value);
}
Result<void> OLSimpleObject::setBool(const std::string& key, bool value) {
  return set(key, value);
}
Result<void> OLSimpleObject::setNull(const std::string& key) {
  return set(key, SimpleNull{});
}

std::shared_ptr<OLSimpleObject> OLSimpleObject::fromDictionary(const Json& dictionary) {
  if (!dictionary.is_object() || !isValidJSONObject(dictionary)) return nullptr;
  auto object = std::shared_ptr<OLSimpleObject>(new OLSimpleObject(Empty{}));
  for (const auto& [key, value] : dictionary.items()) {
    auto checked = getCheckedProperty(key, value);
    if (!checked || !object->set(key, std::move(*checked))) return nullptr;
  }
  return object;
}

std::shared_ptr<OLSimpleObject> OLSimpleObject::fromJSONString(std::string_view text) {
  if (!isValidUtf8(text)) return nullptr;
  auto parsed = parseJson(text);
  if (!parsed || !parsed->is_object()) return nullptr;
  return fromDictionary(*parsed);
}

Json OLSimpleObject::getDictionary() const {
  Json out = Json::object();
  for (const auto& [k, v] : properties_) out[k] = toJson(v);
  return out;
}

std::optional<SimpleValue> OLSimpleObject::get(const std::string& key) const {
  for (const auto& [k, v] : properties_) {
    if (k == key) return v;
  }
  return std::nullopt;
}

Result<std::string> OLSimpleObject::toJSONString() const {
  Json dictionary = getDictionary();
  if (!isValidJSONObject(dictionary)) {
    return OLError::LocalError(LocalErrorCodes::SimpleObjectSerializationError,
                               "Properties not serializable", std::nullopt, dictionary);
  }
  return dumpJson(dictionary);
}

std::string OLSimpleObject::description() const {
  auto text = toJSONString();
  return text ? *text : "{}";
}

void OLSimpleObject::encode(ArchiveWriter& writer) const {
  Json archived = Json::object();
  for (const auto& [k, v] : properties_) archived[k] = toArchived(v);
  writer.encodeJson(kPropertiesKey, archived);
}

std::size_t OLSimpleObject::length() const {
  ArchiveWriter writer(kArchiveClassName);
  encode(writer);
  return writer.bytes().size();
}

std::shared_ptr<OLSimpleObject> OLSimpleObject::decode(const ArchiveReader& reader) {
  auto stored = reader.decodeJson(kPropertiesKey);
  if (!stored || !stored->is_object()) return nullptr;
  // Built again through the checks, so a bag that is no longer valid is dropped.
  auto object = std::shared_ptr<OLSimpleObject>(new OLSimpleObject(Empty{}));
  for (const auto& [key, value] : stored->items()) {
    if (value.is_object() && value.size() == 1 && value.contains(kFloatTag) &&
        value[kFloatTag].is_number()) {
      if (!object->set(key, static_cast<float>(value[kFloatTag].get<double>()))) return nullptr;
      continue;
    }
    auto checked = getCheckedProperty(key, value);
    if (!checked || !object->set(key, std::move(*checked))) return nullptr;
  }
  return object;
}

}  // namespace ostrel
