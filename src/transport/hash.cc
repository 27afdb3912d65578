#include "transport/hash.h"

#include "platform/runtime.h"

namespace ostrel {

std::string hmacBytes(CryptoAlgorithm algorithm, std::string_view key, std::string_view message) {
  return runtime::crypto().hmac(algorithm, key, message);
}

std::string hmacHex(CryptoAlgorithm algorithm, std::string_view key, std::string_view message) {
  return hexString(hmacBytes(algorithm, key, message));
}

std::string sha1Bytes(std::string_view data) {
  return runtime::crypto().sha1(data);
}

std::string sha1Hex(std::string_view data) {
  return hexString(sha1Bytes(data));
}

}  // namespace ostrel
