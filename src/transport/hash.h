#pragma once
// Hash helpers over the platform's crypto: digests as bytes or lower-case hex.
#include <string>
#include <string_view>

#include "ostrel/platform/crypto.h"

namespace ostrel {

std::string hmacBytes(CryptoAlgorithm algorithm, std::string_view key, std::string_view message);
std::string hmacHex(CryptoAlgorithm algorithm, std::string_view key, std::string_view message);
std::string sha1Bytes(std::string_view data);
std::string sha1Hex(std::string_view data);

}  // namespace ostrel
