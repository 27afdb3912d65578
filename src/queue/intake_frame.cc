#include "queue/intake_frame.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>

namespace ostrel {
namespace {

constexpr char kMagic[4] = {'O', 'L', 'I', '1'};

char* putLE(char* out, uint32_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) *out++ = static_cast<char>((value >> (8 * i)) & 0xff);
  return out;
}

uint32_t getLE(std::string_view in, std::size_t at, int bytes) {
  uint32_t value = 0;
  for (int i = 0; i < bytes; ++i) {
    value |= static_cast<uint32_t>(static_cast<unsigned char>(in[at + i])) << (8 * i);
  }
  return value;
}

std::size_t payloadSize(const IntakeRecord& record) {
  return 4 + record.fileName.size() + record.eventType.size() + record.archive.size();
}

uint32_t crcOf(std::string_view bytes) {
  return static_cast<uint32_t>(
      ::crc32(0L, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

std::optional<IntakeRecord> decodePayload(std::string_view payload) {
  if (payload.size() < 2) return std::nullopt;
  const std::size_t nameLength = getLE(payload, 0, 2);
  if (payload.size() < 2 + nameLength + 2) return std::nullopt;
  const std::size_t typeLength = getLE(payload, 2 + nameLength, 2);
  const std::size_t archiveAt = 2 + nameLength + 2 + typeLength;
  if (payload.size() < archiveAt || nameLength == 0) return std::nullopt;
  IntakeRecord record;
  record.fileName.assign(payload.substr(2, nameLength));
  record.eventType.assign(payload.substr(4 + nameLength, typeLength));
  record.archive.assign(payload.substr(archiveAt));
  // A name that could leave its chunk folder is damage, whatever its checksum says.
  if (record.fileName.find('/') != std::string::npos || record.fileName == "." ||
      record.fileName == "..") {
    return std::nullopt;
  }
  return record;
}

}  // namespace

std::size_t intakeFrameSize(const IntakeRecord& record) {
  return kIntakeFrameHeader + payloadSize(record);
}

std::size_t intakeFrameSize(const char* header) {
  return kIntakeFrameHeader + getLE(std::string_view(header, kIntakeFrameHeader), 4, 4);
}

void writeIntakeFrameBody(char* out, const IntakeRecord& record) {
  char* const payload = out + kIntakeFrameHeader;
  char* at = putLE(payload, static_cast<uint32_t>(record.fileName.size()), 2);
  at = std::copy(record.fileName.begin(), record.fileName.end(), at);
  at = putLE(at, static_cast<uint32_t>(record.eventType.size()), 2);
  at = std::copy(record.eventType.begin(), record.eventType.end(), at);
  at = std::copy(record.archive.begin(), record.archive.end(), at);
  const auto length = static_cast<std::size_t>(at - payload);
  putLE(out + 4, static_cast<uint32_t>(length), 4);
  putLE(out + 8, crcOf(std::string_view(payload, length)), 4);
}

void appendIntakeFrame(std::string& out, const IntakeRecord& record) {
  const std::size_t from = out.size();
  out.resize(from + intakeFrameSize(record));
  writeIntakeFrameBody(out.data() + from, record);
  std::memcpy(out.data() + from, kMagic, sizeof kMagic);
}

IntakeParse parseIntakeFrames(std::string_view bytes, bool atEnd) {
  IntakeParse result;
  std::size_t at = 0;
  std::size_t damageFrom = std::string_view::npos;
  auto settleDamage = [&](std::size_t upTo) {
    if (damageFrom != std::string_view::npos) result.skipped += upTo - damageFrom;
    damageFrom = std::string_view::npos;
  };
  while (at < bytes.size()) {
    const std::size_t left = bytes.size() - at;
    const bool magicFits = left >= sizeof kMagic;
    if (magicFits && std::memcmp(bytes.data() + at, kMagic, sizeof kMagic) != 0) {
      if (damageFrom == std::string_view::npos) damageFrom = at;
      // On to the next byte that could start a frame: a mapped segment holds
      // long runs of zeros (room never written).
      const void* next = std::memchr(bytes.data() + at + 1, kMagic[0], bytes.size() - at - 1);
      at = next ? static_cast<std::size_t>(static_cast<const char*>(next) - bytes.data())
                : bytes.size();
      continue;
    }
    if (left < kIntakeFrameHeader) {
      // Not even a header: more bytes may come, unless this is the end.
      if (!atEnd) break;
      if (damageFrom == std::string_view::npos) damageFrom = at;
      at = bytes.size();
      break;
    }
    const std::size_t length = getLE(bytes, at + 4, 4);
    if (length > kIntakeMaxPayload) {
      if (damageFrom == std::string_view::npos) damageFrom = at;
      ++at;
      continue;
    }
    if (left < kIntakeFrameHeader + length) {
      if (!atEnd) {
        result.pendingFrameBytes = kIntakeFrameHeader + length;
        break;
      }
      // Torn at the end, or a damaged length: look for a frame inside it.
      if (damageFrom == std::string_view::npos) damageFrom = at;
      ++at;
      continue;
    }
    const std::string_view payload = bytes.substr(at + kIntakeFrameHeader, length);
    auto record = crcOf(payload) == getLE(bytes, at + 8, 4) ? decodePayload(payload) : std::nullopt;
    if (!record) {
      if (damageFrom == std::string_view::npos) damageFrom = at;
      ++at;
      continue;
    }
    settleDamage(at);
    result.frames.push_back({std::move(*record), at, at + kIntakeFrameHeader + length});
    at += kIntakeFrameHeader + length;
  }
  // Damage up to where parsing stopped is settled; an unfinished frame is not.
  settleDamage(at);
  result.consumed = at;
  return result;
}

}  // namespace ostrel
