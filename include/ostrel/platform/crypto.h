#pragma once
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ostrel/export.h"

namespace ostrel {

// Hash functions available for HMAC, with their digest lengths.
enum class CryptoAlgorithm { MD5, SHA1, SHA224, SHA256, SHA384, SHA512 };
OSTREL_API std::size_t digestLength(CryptoAlgorithm algorithm);

namespace platform {

// Byte strings are carried in std::string.
class OSTREL_API Crypto {
 public:
  virtual ~Crypto() = default;
  // Empty when no digest can be made any more (the process is exiting): the
  // library then sends nothing.
  virtual std::string hmac(CryptoAlgorithm algorithm, std::string_view key,
                           std::string_view message) const = 0;
  virtual std::string sha1(std::string_view data) const = 0;
  virtual std::string base64Encode(std::string_view data) const = 0;
  virtual std::optional<std::string> base64Decode(std::string_view text) const = 0;
  // Cryptographically secure random bytes.
  virtual std::string randomBytes(std::size_t count) const = 0;
  // Uniform in [0, upperBound), without modulo bias; upperBound > 0.
  virtual uint32_t randomUniform(uint32_t upperBound) const = 0;
};

}  // namespace platform

// Lower-case hexadecimal of bytes, two digits per byte.
OSTREL_API std::string hexString(std::string_view bytes);

}  // namespace ostrel
