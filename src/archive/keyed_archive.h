#pragma once
// The one archive format of every stored object: CBOR of a map of keys plus the
// stored class name, inside an envelope with a format version. Decoding never
// throws: garbage, truncation, wrong types and unknown classes are errors.
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "ostrel/json.h"
#include "ostrel/result.h"

namespace ostrel {

class ArchiveWriter;

// An object that can be written to an archive under its class name.
class Archivable {
 public:
  virtual ~Archivable() = default;
  virtual std::string archiveClassName() const = 0;
  virtual void encode(ArchiveWriter& writer) const = 0;
};

class ArchiveWriter {
 public:
  explicit ArchiveWriter(std::string className);

  void encodeString(std::string_view key, const std::string& value);
  void encodeInt(std::string_view key, int64_t value);
  void encodeBool(std::string_view key, bool value);
  void encodeDouble(std::string_view key, double value);
  void encodeFloat(std::string_view key, float value);
  // A date as seconds since 1970.
  void encodeDate(std::string_view key, double secondsSince1970);
  void encodeStrings(std::string_view key, const std::vector<std::string>& values);
  // A dictionary or list of plain values, stored as it is.
  void encodeJson(std::string_view key, const Json& value);
  void encodeObject(std::string_view key, const Archivable& object);

  // The archive bytes of the object written so far (as root object).
  std::string bytes() const;
  const Json& node() const { return node_; }

 private:
  Json node_;
};

class ArchiveReader {
 public:
  // Opens the bytes of an archive; fails on anything that is not one.
  static Result<ArchiveReader> open(std::string_view bytes);

  const std::string& className() const { return className_; }
  bool contains(std::string_view key) const;

  Result<std::string> decodeString(std::string_view key) const;
  Result<int64_t> decodeInt(std::string_view key) const;
  Result<bool> decodeBool(std::string_view key) const;
  Result<double> decodeDouble(std::string_view key) const;
  Result<float> decodeFloat(std::string_view key) const;
  Result<double> decodeDate(std::string_view key) const;
  Result<std::vector<std::string>> decodeStrings(std::string_view key) const;
  Result<Json> decodeJson(std::string_view key) const;
  Result<ArchiveReader> decodeObject(std::string_view key) const;

 private:
  ArchiveReader(Json node, std::string className)
      : node_(std::move(node)), className_(std::move(className)) {}
  Result<const Json*> field(std::string_view key) const;
  static Result<ArchiveReader> fromNode(const Json& node);

  Json node_;
  std::string className_;
};

// The archive bytes of an object as root object.
std::string archivedBytes(const Archivable& object);

OLError archiveError(std::string message);

// Decoders of a polymorphic class tree, by stored class name.
template <class Base>
class ArchiveRegistry {
 public:
  using Decoder = std::function<Result<std::shared_ptr<Base>>(const ArchiveReader&)>;

  static ArchiveRegistry& shared() {
    static auto* registry = new ArchiveRegistry();  // outlives the library's threads
    return *registry;
  }

  void registerClass(const std::string& className, Decoder decoder) {
    std::lock_guard lock(mutex_);
    decoders_[className] = std::move(decoder);
  }

  Result<std::shared_ptr<Base>> decode(const ArchiveReader& reader) const {
    Decoder decoder;
    {
      std::lock_guard lock(mutex_);
      auto it = decoders_.find(reader.className());
      if (it == decoders_.end())
        return archiveError("Unknown archived class " + reader.className());
      decoder = it->second;
    }
    return decoder(reader);
  }

  Result<std::shared_ptr<Base>> decode(std::string_view bytes) const {
    auto reader = ArchiveReader::open(bytes);
    if (!reader) return reader.error();
    return decode(*reader);
  }

 private:
  mutable std::mutex mutex_;
  std::map<std::string, Decoder> decoders_;
};

}  // namespace ostrel
