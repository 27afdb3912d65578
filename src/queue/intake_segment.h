#pragma once
// One segment of the intake log mapped into memory, filled by producers on
// their own threads. A producer reserves the room of its frame with one atomic
// step on the segment's state, copies the frame in and stores its magic last,
// atomically: a frame whose magic a reader loads is whole, and its bytes are
// in the file as soon as they are stored, so a kill of the process keeps them.
// A producer killed mid-copy leaves a frame without its magic (or with a
// checksum that fails), which readers of the file skip; the frames after it
// are whole. Frames start at multiples of kIntakeFrameAlign; the padding and
// the room never reserved stay zero.
//
// Lifetime: a producer pins the segment before it looks at the mapping and
// checks that the segment is still the current one; the owner unmaps a
// segment only once it is sealed (no reservation can succeed any more) and
// nobody holds a pin. The object itself outlives its mapping and is reused
// for a later segment, so that a producer that read a stale pointer touches
// only the pin count.
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "ostrel/platform/file_system.h"
#include "queue/intake_frame.h"

namespace ostrel {

constexpr std::size_t kIntakeFrameAlign = 8;

constexpr std::size_t alignedIntakeFrame(std::size_t bytes) {
  return (bytes + kIntakeFrameAlign - 1) / kIntakeFrameAlign * kIntakeFrameAlign;
}

class MappedSegment {
 public:
  // The largest segment the state word can describe.
  static constexpr uint64_t kMaxBytes = 0xffffffffu;

  struct Slot {
    uint64_t offset = 0;
    uint64_t number = 0;  // the event's number in this run, in the order of the log
  };
  struct Extent {
    uint64_t end = 0;    // end of the room reserved
    uint64_t count = 0;  // frames reserved
  };

  // Owner, while no producer can reach the segment: a fresh mapping, the log
  // segment `id`; its first frame gets `firstNumber` + 1.
  void reset(uint64_t id, std::unique_ptr<platform::MappedFile> file);
  void setFirstNumber(uint64_t firstNumber) { firstNumber_ = firstNumber; }
  uint64_t id() const { return id_; }
  uint64_t size() const { return size_; }

  // Producers.
  void pin() { users_.fetch_add(1); }
  void unpin() { users_.fetch_sub(1, std::memory_order_release); }
  // Room for `bytes` (a multiple of kIntakeFrameAlign), or nothing once the
  // segment is sealed or too full for them.
  std::optional<Slot> reserve(std::size_t bytes);
  // Copies the frame of `record` into its slot, the magic last.
  void write(const Slot& slot, const IntakeRecord& record);

  // Owner. Ends reservations; answers what they took.
  Extent seal();
  Extent extent() const;
  // True when no producer holds a pin: after seal(), every frame reserved is whole.
  bool idle() const { return users_.load() == 0; }
  bool mapped() const { return file_ != nullptr; }
  // Gives the mapping up (the caller destroys it, unmapping, outside its locks).
  std::unique_ptr<platform::MappedFile> unmap();

  // Reader: the whole frames from `offset` on, up to `end` and at most `max`,
  // stopping at the first one not yet published. Offsets in the answer are
  // relative to `offset`; a frame's end includes its padding.
  IntakeParse published(uint64_t offset, uint64_t end, std::size_t max) const;

 private:
  static constexpr uint64_t kSealed = uint64_t{1} << 63;
  static constexpr int kCountShift = 32;
  uint32_t* wordAt(uint64_t offset) const { return reinterpret_cast<uint32_t*>(data_ + offset); }

  // Room reserved (bits 0-31), frames reserved (bits 32-62), sealed (bit 63).
  std::atomic<uint64_t> state_{0};
  std::atomic<uint32_t> users_{0};
  uint64_t id_ = 0;
  uint64_t firstNumber_ = 0;
  std::unique_ptr<platform::MappedFile> file_;
  char* data_ = nullptr;
  uint64_t size_ = 0;
};

}  // namespace ostrel
