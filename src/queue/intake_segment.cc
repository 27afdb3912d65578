#include "queue/intake_segment.h"

#include <algorithm>

namespace ostrel {

void MappedSegment::reset(uint64_t id, std::unique_ptr<platform::MappedFile> file) {
  id_ = id;
  firstNumber_ = 0;
  data_ = file->data();
  size_ = std::min<uint64_t>(file->size(), kMaxBytes);
  file_ = std::move(file);
  state_.store(0);
}

std::optional<MappedSegment::Slot> MappedSegment::reserve(std::size_t bytes) {
  uint64_t state = state_.load(std::memory_order_relaxed);
  for (;;) {
    const uint64_t offset = state & kMaxBytes;
    if ((state & kSealed) != 0 || offset + bytes > size_) return std::nullopt;
    // Both the room and the count move in one step, so that the count is the
    // frame's rank in the segment.
    const uint64_t next = state + bytes + (uint64_t{1} << kCountShift);
    if (state_.compare_exchange_weak(state, next)) {
      return Slot{offset, firstNumber_ + ((state & ~kSealed) >> kCountShift) + 1};
    }
  }
}

void MappedSegment::write(const Slot& slot, const IntakeRecord& record) {
  writeIntakeFrameBody(data_ + slot.offset, record);
  // Sequentially consistent: the intake's thread, about to sleep, either sees
  // this frame or is seen asleep by this producer (which then wakes it).
  std::atomic_ref<uint32_t>(*wordAt(slot.offset)).store(kIntakeMagicWord);
}

MappedSegment::Extent MappedSegment::seal() {
  const uint64_t state = state_.fetch_or(kSealed) & ~kSealed;
  return {state & kMaxBytes, state >> kCountShift};
}

MappedSegment::Extent MappedSegment::extent() const {
  const uint64_t state = state_.load() & ~kSealed;
  return {state & kMaxBytes, state >> kCountShift};
}

std::unique_ptr<platform::MappedFile> MappedSegment::unmap() {
  data_ = nullptr;
  size_ = 0;
  return std::move(file_);
}

IntakeParse MappedSegment::published(uint64_t offset, uint64_t end, std::size_t max) const {
  IntakeParse out;
  uint64_t at = offset;
  end = std::min(end, size_);
  while (out.frames.size() < max && at + kIntakeFrameHeader <= end) {
    if (std::atomic_ref<uint32_t>(*wordAt(at)).load() != kIntakeMagicWord) break;
    const uint64_t whole = intakeFrameSize(data_ + at);
    const uint64_t next = std::min<uint64_t>(alignedIntakeFrame(whole) + at, end);
    if (at + whole <= end) {
      auto parsed = parseIntakeFrames(std::string_view(data_ + at, whole), true);
      if (parsed.frames.size() == 1 && parsed.frames[0].end == whole) {
        out.frames.push_back({std::move(parsed.frames[0].record), at - offset, next - offset});
      }
    }
    // A frame that does not check out cannot come from this process: it is
    // skipped like any damage.
    at = next;
  }
  out.consumed = at - offset;
  return out;
}

}  // namespace ostrel
