#pragma once
// The user's stored tokens. An autologin token carries its own expiry in its text.
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "archive/keyed_archive.h"
#include "core/expirable.h"
#include "store/ol_disk_storage.h"

namespace ostrel {

class Token : public Archivable {
 public:
  explicit Token(std::string value) : value(std::move(value)) {}
  std::string archiveClassName() const override { return "Ostrel.Token"; }
  void encode(ArchiveWriter& writer) const override { writer.encodeString("value", value); }
  // Its name in a store: the qualified type name.
  virtual std::string storageName() const { return "Ostrel.Token"; }
  std::string value;
};

// A token that can drive an autologin.
class Autologinble {
 public:
  virtual ~Autologinble() = default;
};

class AutologinToken : public Token, public Expirable, public Autologinble {
 public:
  using Token::Token;
  std::string archiveClassName() const override { return "Ostrel.AutologinToken"; }
  std::string storageName() const override { return "AutologinToken"; }
  // The instant inside the text; absent for a short (printed on the
  // platform's log) or unreadable token.
  std::optional<double> expireDate(const Platform& platform) const;
  // Expired when the instant is absent or strictly in the past.
  bool isExpired(const Platform& platform) const override;
};

// Decodes a stored Token or AutologinToken.
Result<std::shared_ptr<Token>> decodeToken(std::string_view bytes);

template <>
struct StorableTraits<Token> {
  static std::string archive(const Token& t) { return archivedBytes(t); }
  static Result<std::shared_ptr<Token>> unarchive(std::string_view bytes) {
    return decodeToken(bytes);
  }
  static std::string key(const Token& t) { return t.storageName(); }
  static std::string description(const Token& t, const Platform&) { return t.archiveClassName(); }
};

}  // namespace ostrel
