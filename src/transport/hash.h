#pragma once
// Hash helpers over the platform's crypto: digests as bytes or lower-case hex.
#include <string>
#include <string_view>

#include "ostrel/platform/crypto.h"

namespace ostrel {

std::string hmacHex(const platform::Crypto& crypto, CryptoAlgorithm algorithm, std::string_view key,
                    std::string_view message);
std::string sha1Hex(const platform::Crypto& crypto, std::string_view data);

}  // namespace ostrel
