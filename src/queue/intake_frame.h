#pragma once
// The record format of the intake log. Every accepted event is one frame:
//   "OLI1" | payload length (u32 LE) | CRC-32 of the payload (u32 LE) | payload
//   payload = name length (u16 LE) | name | type length (u16 LE) | type | archive
// A frame is whole or it is not there: a crash mid-append leaves a torn frame at
// the end of a segment, a producer killed mid-copy leaves one anywhere in a
// mapped segment, and damaged or never-written bytes are skipped up to the next
// frame that checks out, so one bad byte never hides the frames after it.
#include <array>
#include <bit>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ostrel {

// One accepted event as the chunked queue stores it.
struct IntakeRecord {
  std::string fileName;   // the event's file name inside its chunk
  std::string eventType;  // for the console line of the append
  std::string archive;    // the event's keyed archive, written as is
};

constexpr std::size_t kIntakeFrameHeader = 12;
// Larger payloads are damage, not events (an event's archive stays far below).
constexpr std::size_t kIntakeMaxPayload = 1 << 20;
// The magic as one word in memory: a mapped segment publishes a frame by
// storing it last, atomically.
constexpr uint32_t kIntakeMagicWord =
    std::bit_cast<uint32_t>(std::array<char, 4>{'O', 'L', 'I', '1'});

// The bytes of the frame of `record`, header included.
std::size_t intakeFrameSize(const IntakeRecord& record);
// The bytes of the whole frame whose header `header` holds (kIntakeFrameHeader bytes).
std::size_t intakeFrameSize(const char* header);
// Writes the frame of `record` into `out` (intakeFrameSize bytes), all but
// its first four bytes: the caller stores the magic there last.
void writeIntakeFrameBody(char* out, const IntakeRecord& record);
// Appends the frame of `record` to `out`.
void appendIntakeFrame(std::string& out, const IntakeRecord& record);

struct IntakeFrame {
  IntakeRecord record;
  std::size_t begin = 0;  // offset of the frame in the buffer
  std::size_t end = 0;    // offset just past it
};

struct IntakeParse {
  std::vector<IntakeFrame> frames;
  // Bytes settled: whole frames and the damage skipped between them. Anything
  // after it is the start of a frame that the buffer does not hold whole.
  std::size_t consumed = 0;
  // Bytes skipped as damage.
  std::size_t skipped = 0;
  // Length the unfinished frame at `consumed` needs, when its header was read.
  std::optional<std::size_t> pendingFrameBytes;
};

// Reads the frames of `bytes`. With `atEnd` the buffer ends where the segment
// ends: a frame cut short there is a torn append and counts as damage.
IntakeParse parseIntakeFrames(std::string_view bytes, bool atEnd);

}  // namespace ostrel
