#include "archive/keyed_archive.h"

#include <cmath>

namespace ostrel {
namespace {

constexpr int kFormatVersion = 1;
constexpr const char* kClassKey = "$class";
// Nesting deeper than this is no archive of ours.
constexpr int kMaxDepth = 64;

// Builds the value like the library's DOM reader, but refuses nesting deeper
// than kMaxDepth before the (recursive) CBOR reader can go any deeper.
class DepthLimitedBuilder {
 public:
  explicit DepthLimitedBuilder(Json& result) : dom_(result, /*allow_exceptions=*/false) {}
  bool null() { return dom_.null(); }
  bool boolean(bool v) { return dom_.boolean(v); }
  bool number_integer(Json::number_integer_t v) { return dom_.number_integer(v); }
  bool number_unsigned(Json::number_unsigned_t v) { return dom_.number_unsigned(v); }
  bool number_float(Json::number_float_t v, const Json::string_t& s) {
    return dom_.number_float(v, s);
  }
  bool string(Json::string_t& v) { return dom_.string(v); }
  bool binary(Json::binary_t& v) { return dom_.binary(v); }
  bool start_object(std::size_t n) { return ++depth_ <= kMaxDepth && dom_.start_object(n); }
  bool key(Json::string_t& k) { return dom_.key(k); }
  bool end_object() {
    --depth_;
    return dom_.end_object();
  }
  bool start_array(std::size_t n) { return ++depth_ <= kMaxDepth && dom_.start_array(n); }
  bool end_array() {
    --depth_;
    return dom_.end_array();
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) {
    return false;
  }

 private:
  nlohmann::detail::json_sax_dom_parser<Json> dom_;
  int depth_ = 0;
};

}  // namespace

OLError archiveError(std::string message) {
  return OLError::LocalError(LocalErrorCodes::StorageError, std::move(message));
}

ArchiveWriter::ArchiveWriter(std::string className) : node_(Json::object()) {
  node_[kClassKey] = std::move(className);
}

void ArchiveWriter::encodeString(std::string_view key, const std::string& value) {
  node_[std::string(key)] = value;
}
void ArchiveWriter::encodeInt(std::string_view key, int64_t value) {
  node_[std::string(key)] = value;
}
void ArchiveWriter::encodeBool(std::string_view key, bool value) {
  node_[std::string(key)] = value;
}
void ArchiveWriter::encodeDouble(std::string_view key, double value) {
  node_[std::string(key)] = value;
}
void ArchiveWriter::encodeFloat(std::string_view key, float value) {
  node_[std::string(key)] = static_cast<double>(value);
}
void ArchiveWriter::encodeDate(std::string_view key, double secondsSince1970) {
  node_[std::string(key)] = secondsSince1970;
}
void ArchiveWriter::encodeStrings(std::string_view key, const std::vector<std::string>& values) {
  node_[std::string(key)] = values;
}
void ArchiveWriter::encodeJson(std::string_view key, const Json& value) {
  node_[std::string(key)] = value;
}
void ArchiveWriter::encodeObject(std::string_view key, const Archivable& object) {
  ArchiveWriter nested(object.archiveClassName());
  object.encode(nested);
  node_[std::string(key)] = std::move(nested.node_);
}

std::string ArchiveWriter::bytes() const {
  Json envelope = {{"$archive", "ostrel"}, {"$version", kFormatVersion}, {"$root", node_}};
  std::vector<std::uint8_t> cbor = Json::to_cbor(envelope);
  return std::string(cbor.begin(), cbor.end());
}

std::string archivedBytes(const Archivable& object) {
  ArchiveWriter writer(object.archiveClassName());
  object.encode(writer);
  return writer.bytes();
}

Result<ArchiveReader> ArchiveReader::open(std::string_view bytes) {
  Json envelope;
  try {
    DepthLimitedBuilder builder(envelope);
    if (!Json::sax_parse(bytes.begin(), bytes.end(), &builder,
                         nlohmann::detail::input_format_t::cbor,
                         /*strict=*/true)) {
      return archiveError("Not an archive");
    }
  } catch (const Json::exception&) {
    return archiveError("Not an archive");
  }
  if (!envelope.is_object()) return archiveError("Not an archive");
  auto version = envelope.find("$version");
  if (envelope.value("$archive", Json()) != "ostrel" || version == envelope.end() ||
      !version->is_number_integer() || version->get<int64_t>() != kFormatVersion) {
    return archiveError("Unsupported archive format");
  }
  auto root = envelope.find("$root");
  if (root == envelope.end()) return archiveError("Archive without root object");
  return fromNode(*root);
}

Result<ArchiveReader> ArchiveReader::fromNode(const Json& node) {
  if (!node.is_object()) return archiveError("Archived object is not a map");
  auto cls = node.find(kClassKey);
  if (cls == node.end() || !cls->is_string()) return archiveError("Archived object without class");
  return ArchiveReader(node, cls->get<std::string>());
}

bool ArchiveReader::contains(std::string_view key) const {
  return node_.contains(std::string(key));
}

Result<const Json*> ArchiveReader::field(std::string_view key) const {
  auto it = node_.find(std::string(key));
  if (it == node_.end()) return archiveError("Missing archived key " + std::string(key));
  return &*it;
}

Result<std::string> ArchiveReader::decodeString(std::string_view key) const {
  auto f = field(key);
  if (!f) return f.error();
  if (!(*f)->is_string()) return archiveError("Archived key is not a text: " + std::string(key));
  return (*f)->get<std::string>();
}

Result<int64_t> ArchiveReader::decodeInt(std::string_view key) const {
  auto f = field(key);
  if (!f) return f.error();
  if ((*f)->is_number_unsigned() && (*f)->get<uint64_t>() > static_cast<uint64_t>(INT64_MAX)) {
    return archiveError("Archived integer out of range: " + std::string(key));
  }
  if (!(*f)->is_number_integer()) {
    return archiveError("Archived key is not an integer: " + std::string(key));
  }
  return (*f)->get<int64_t>();
}

Result<bool> ArchiveReader::decodeBool(std::string_view key) const {
  auto f = field(key);
  if (!f) return f.error();
  if (!(*f)->is_boolean())
    return archiveError("Archived key is not a boolean: " + std::string(key));
  return (*f)->get<bool>();
}

Result<double> ArchiveReader::decodeDouble(std::string_view key) const {
  auto f = field(key);
  if (!f) return f.error();
  if (!(*f)->is_number()) return archiveError("Archived key is not a number: " + std::string(key));
  return (*f)->get<double>();
}

Result<float> ArchiveReader::decodeFloat(std::string_view key) const {
  auto d = decodeDouble(key);
  if (!d) return d.error();
  return static_cast<float>(*d);
}

Result<double> ArchiveReader::decodeDate(std::string_view key) const {
  auto d = decodeDouble(key);
  if (!d) return d.error();
  // Years 1 to 9999: anything else is a damaged file, and would not survive
  // the conversions to calendar dates and microsecond names.
  constexpr double kFirst = -62135596800.0, kLast = 253402300799.0;
  if (!std::isfinite(*d) || *d < kFirst || *d > kLast) {
    return archiveError("Archived date is out of range: " + std::string(key));
  }
  return *d;
}

Result<std::vector<std::string>> ArchiveReader::decodeStrings(std::string_view key) const {
  auto f = field(key);
  if (!f) return f.error();
  if (!(*f)->is_array()) return archiveError("Archived key is not a list: " + std::string(key));
  std::vector<std::string> out;
  for (const auto& item : **f) {
    if (!item.is_string())
      return archiveError("Archived list holds a non-text: " + std::string(key));
    out.push_back(item.get<std::string>());
  }
  return out;
}

Result<Json> ArchiveReader::decodeJson(std::string_view key) const {
  auto f = field(key);
  if (!f) return f.error();
  return **f;
}

Result<ArchiveReader> ArchiveReader::decodeObject(std::string_view key) const {
  auto f = field(key);
  if (!f) return f.error();
  return fromNode(**f);
}

}  // namespace ostrel
