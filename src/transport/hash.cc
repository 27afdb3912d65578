#include "transport/hash.h"

#include "ostrel/json.h"

namespace ostrel {

std::string hmacHex(const platform::Crypto& crypto, CryptoAlgorithm algorithm, std::string_view key,
                    std::string_view message) {
  return hexString(crypto.hmac(algorithm, key, message));
}

std::string sha1Hex(const platform::Crypto& crypto, std::string_view data) {
  return hexString(crypto.sha1(data));
}

}  // namespace ostrel
