#pragma once
// What every fuzz target shares: a quiet platform whose storage root is a
// private temporary folder, installed once per process.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ostrel::fuzz {

// Installs the platform on first call; returns the storage root.
const std::string& installQuietPlatform();

inline std::string_view bytesOf(const uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

}  // namespace ostrel::fuzz
