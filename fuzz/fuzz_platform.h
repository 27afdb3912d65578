#pragma once
// What every fuzz target shares: a quiet platform whose storage root is a
// private temporary folder, installed once per process.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/platform_ref.h"

namespace ostrel::fuzz {

// Installs the platform on first call; returns the storage root.
const std::string& installQuietPlatform();
// The same platform, for the components a target builds.
const PlatformRef& quietPlatform();

inline std::string_view bytesOf(const uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

}  // namespace ostrel::fuzz
