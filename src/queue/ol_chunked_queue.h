#pragma once
// The on-disk event queue: events are written one file each into numbered
// chunk folders ("EventQueue/Chunks/<key>"); whole chunks are popped oldest
// first and removed once the service has taken them.
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "events/ol_base_event.h"
#include "queue/chunk_size_file.h"
#include "queue/intake_frame.h"
#include "store/ol_disk_storage.h"

namespace ostrel {

template <>
struct StorableTraits<OLBaseEvent> {
  static std::string archive(const OLBaseEvent& e) { return archivedBytes(e); }
  static Result<std::shared_ptr<OLBaseEvent>> unarchive(std::string_view bytes);
  static std::string key(const OLBaseEvent& e) { return e.uniqueName(); }
  static std::string description(const OLBaseEvent& e, const Platform&) { return e.eventType; }
};

class OLChunkedQueue : public OLDiskStorage<OLBaseEvent> {
 public:
  // Rebuilds the chunk list from the folders on disk.
  OLChunkedQueue(PlatformRef platform, std::string name, int64_t chunkSize);

  Result<std::string> getStorePathFromItem(const OLBaseEvent& item) override;
  Result<std::string> getHandlerForPath(const std::string& path) override;
  Result<std::optional<std::string>> getPathFromHandler(
      const std::optional<std::string>& handler) override;

  // What an event becomes in a chunk: its file name and its archive.
  static IntakeRecord recordOf(const OLBaseEvent& event);
  // Appends one event to the push chunk (opening a new chunk when it is full).
  Result<void> append(const OLBaseEvent& event) { return append(recordOf(event)); }
  Result<void> append(const IntakeRecord& record);
  // The events of a chunk (the oldest without a handler), oldest first; the
  // handler is set to the chunk's key. Undecodable files are skipped.
  Result<std::vector<std::shared_ptr<OLBaseEvent>>> popChunk(std::optional<std::string>& handler,
                                                             bool withRemove);
  // Deletes one chunk.
  Result<void> removeChunk(const std::string& handler);
  // Entries of the oldest chunk: what the next pop returns.
  Result<std::size_t> count();

  std::vector<int> chunkKeys();
  int64_t pushChunkSize() const;
  std::string pushUrl();
  std::string chunksFolder() { return storageUrl() + "/Chunks"; }
  // Sent chunks wait here for their removal, which happens off the queue's path.
  std::string sentFolder() { return storageUrl() + "/Sent"; }

  // What the readiness test needs, kept in memory so producers never touch
  // the disk: bytes and events of the oldest chunk, and how many chunks exist.
  struct Snapshot {
    int64_t oldestBytes = 0;
    int64_t oldestCount = 0;
    std::size_t chunkCount = 0;
  };
  Snapshot snapshot() const;

 private:
  void setChunkKeys(std::vector<int> keys);
  void setPushChunkSize(int64_t size);
  void nextPushUrl();
  void ensureKeys();
  void refreshSnapshotLocked();
  void discardFolder(const std::string& folder);
  std::string pathForName(std::string name);

  int64_t chunkMaxSize;
  std::optional<std::vector<int>> _chunkKeys;
  std::optional<int64_t> _pushChunkSize;
  std::optional<std::string> _pushUrl;
  // Names written into the push chunk, to keep two events of the same
  // microsecond from landing on one file.
  std::set<std::string> pushNames_;
  // Bytes and events per chunk key, mirrored from what is on disk.
  std::map<int, std::pair<int64_t, int64_t>> chunkStats_;

  mutable std::mutex snapshotMutex_;
  Snapshot snapshot_;
  ChunkSizeFile chunkSizeFile_;
  // Removes sent chunk folders: on this kind of disk a removal can wait for the
  // device, and the next send should not.
  std::shared_ptr<platform::SerialQueue> remover_;
  uint64_t discarded_ = 0;
  // Set when the queue goes (destroyed before remover_, which then drains at
  // once): what is left aside is removed at the next start, so a stop never
  // waits for the disk.
  struct Stopping {
    std::shared_ptr<std::atomic<bool>> flag = std::make_shared<std::atomic<bool>>(false);
    ~Stopping() { flag->store(true); }
  } stopping_;
};

}  // namespace ostrel
