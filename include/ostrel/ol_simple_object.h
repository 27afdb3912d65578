#pragma once
// OLSimpleObject: the validated property bag for all free-form data. Values are
// texts, integers, floats, doubles, booleans or null; texts are cut to 2048
// user-perceived characters; the whole bag stays within 10240 archived bytes.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "ostrel/export.h"
#include "ostrel/json.h"
#include "ostrel/result.h"

namespace ostrel {

class ArchiveWriter;
class ArchiveReader;

// The null marker of a bag: serialises as JSON null.
struct SimpleNull {
  bool operator==(const SimpleNull&) const = default;
};
using SimpleValue = std::variant<std::string, int64_t, float, double, bool, SimpleNull>;

class OSTREL_API OLSimpleObject {
 public:
  static constexpr int MAX_STR_LENGTH = 2048;
  static constexpr int MAX_SO_SIZE = 10240;

  // No plain constructor: an empty bag comes from an empty map or from "{}".
  OLSimpleObject() = delete;

  // Nothing when the map is not a valid JSON object or any entry is refused.
  static std::shared_ptr<OLSimpleObject> fromDictionary(const Json& dictionary);
  // Nothing when the text is not JSON whose top level is a map, or any entry is refused.
  static std::shared_ptr<OLSimpleObject> fromJSONString(std::string_view text);

  Result<void> setString(const std::string& key, const std::string& value);
  Result<void> setInt(const std::string& key, int64_t value);
  Result<void> setFloat(const std::string& key, float value);
  Result<void> setDouble(const std::string& key, double value);
  Result<void> setBool(const std::string& key, bool value);
  Result<void> setNull(const std::string& key);

  // Checks a value and answers what would be stored (texts cut to 2048 characters).
  static Result<SimpleValue> getCheckedProperty(const std::string& key, const Json& value);

  // A copy of the properties as JSON, in insertion order.
  Json getDictionary() const;
  const std::vector<std::pair<std::string, SimpleValue>>& properties() const { return properties_; }
  std::optional<SimpleValue> get(const std::string& key) const;

  Result<std::string> toJSONString() const;
  std::string description() const;
  // Bytes of the keyed archive of the whole bag.
  std::size_t length() const;

  // Archiving: the properties under "simple_object"; decoding validates again.
  static constexpr const char* kArchiveClassName = "Ostrel.OLSimpleObject";
  void encode(ArchiveWriter& writer) const;
  static std::shared_ptr<OLSimpleObject> decode(const ArchiveReader& reader);

  bool operator==(const OLSimpleObject& other) const { return properties_ == other.properties_; }

 private:
  struct Empty {};
  explicit OLSimpleObject(Empty) {}
  Result<void> set(const std::string& key, SimpleValue value);

  std::vector<std::pair<std::string, SimpleValue>> properties_;
};

}  // namespace ostrel
