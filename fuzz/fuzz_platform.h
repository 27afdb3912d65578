#pragma once
// What the fuzz targets that touch files share: a quiet platform whose storage
// root is a private temporary folder, made once per process.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/platform_ref.h"

namespace ostrel::fuzz {

// Made on first call.
const PlatformRef& quietPlatform();
// Its storage root.
const std::string& quietRoot();

inline std::string_view bytesOf(const uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

}  // namespace ostrel::fuzz
