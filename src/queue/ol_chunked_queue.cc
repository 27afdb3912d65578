#include "queue/ol_chunked_queue.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "events/event_archive.h"

namespace ostrel {
namespace {

std::optional<int> parseKey(const std::string& name) {
  int key = 0;
  auto [end, ec] = std::from_chars(name.data(), name.data() + name.size(), key);
  if (ec != std::errc() || end != name.data() + name.size() || key < 0 || key > 65535) {
    return std::nullopt;
  }
  return key;
}

std::string keysText(const std::vector<int>& keys) {
  std::string out = "[";
  for (std::size_t i = 0; i < keys.size(); ++i) out += (i ? ", " : "") + std::to_string(keys[i]);
  return out + "]";
}

}  // namespace

Result<std::shared_ptr<OLBaseEvent>> StorableTraits<OLBaseEvent>::unarchive(
    std::string_view bytes) {
  return decodeEvent(bytes);
}

OLChunkedQueue::OLChunkedQueue(PlatformRef platform, std::string name, int64_t chunkSize)
    : OLDiskStorage<OLBaseEvent>(std::move(platform), std::move(name)),
      chunkMaxSize(chunkSize),
      chunkSizeFile_(*platform_, ostrelUrl() + "/chunk-size"),
      remover_(platform_->scheduler->makeSerialQueue("io.ostrel.sentChunks")) {
  std::vector<int> keys;
  if (auto names = platform_->files->listDirectory(chunksFolder())) {
    for (const auto& n : *names) {
      if (auto key = parseKey(n)) keys.push_back(*key);
    }
  }
  std::sort(keys.begin(), keys.end());
  logLine(*platform_, "Found " + keysText(keys));
  // Chunks sent before a stop whose removal did not finish.
  if (auto gone = platform_->files->listDirectory(sentFolder())) {
    for (const auto& n : *gone) discardFolder(sentFolder() + "/" + n);
  }
  // Only the oldest and the push chunk need their contents counted now; the
  // others are counted when they become the oldest.
  for (std::size_t i = 0; i < keys.size(); ++i) chunkStats_[keys[i]] = {-1, -1};
  if (!keys.empty()) {
    _chunkKeys = keys;
    _pushUrl = chunksFolder() + "/" + std::to_string(keys.back());
    const auto size = static_cast<int64_t>(getFolderSize(*_pushUrl));
    setPushChunkSize(size);
    if (auto names = platform_->files->listDirectory(*_pushUrl)) {
      pushNames_.insert(names->begin(), names->end());
      chunkStats_[keys.back()] = {size, static_cast<int64_t>(names->size())};
    }
  }
  std::lock_guard lock(snapshotMutex_);
  refreshSnapshotLocked();
}

void OLChunkedQueue::ensureKeys() {
  if (_chunkKeys && !_chunkKeys->empty()) return;
  setChunkKeys({1});
  setPushChunkSize(0);
  _pushUrl = chunksFolder() + "/1";
  pushNames_.clear();
  chunkStats_[1] = {0, 0};
}

std::vector<int> OLChunkedQueue::chunkKeys() {
  ensureKeys();
  return *_chunkKeys;
}

void OLChunkedQueue::setChunkKeys(std::vector<int> keys) {
  _chunkKeys = std::move(keys);
  const std::string folder = chunksFolder();
  if (!platform_->files->isDirectory(folder)) {
    logLine(*platform_, "creating directory " + folder);
    (void)platform_->files->createDirectories(folder);
  }
}

int64_t OLChunkedQueue::pushChunkSize() const {
  return _pushChunkSize.value_or(0);
}

void OLChunkedQueue::setPushChunkSize(int64_t size) {
  _pushChunkSize = size;
  chunkSizeFile_.write(size);
}

void OLChunkedQueue::nextPushUrl() {
  ensureKeys();
  int key = _chunkKeys->back();
  if (_pushUrl) {
    key = (key + 1) % 65536;
    auto keys = *_chunkKeys;
    keys.push_back(key);
    setChunkKeys(std::move(keys));
    setPushChunkSize(0);
    pushNames_.clear();
    chunkStats_[key] = {0, 0};
  }
  _pushUrl = chunksFolder() + "/" + std::to_string(key);
}

std::string OLChunkedQueue::pushUrl() {
  ensureKeys();
  if (_pushUrl && pushChunkSize() >= chunkMaxSize) nextPushUrl();
  if (!_pushUrl) nextPushUrl();
  if (!platform_->files->isDirectory(*_pushUrl)) {
    logLine(*platform_, "About to return an invalid path! creating directory " + *_pushUrl);
    (void)platform_->files->createDirectories(*_pushUrl);
  }
  return *_pushUrl;
}

Result<std::string> OLChunkedQueue::getStorePathFromItem(const OLBaseEvent& item) {
  return pathForName(item.uniqueName());
}

std::string OLChunkedQueue::pathForName(std::string name) {
  // Two events of one type in the same microsecond would share a name; keep both.
  if (pushNames_.count(name)) {
    // Zero-padded, so that names of one microsecond list in the order written.
    char suffix[16];
    int n = 1;
    do {
      std::snprintf(suffix, sizeof suffix, "-%06d", n++);
    } while (pushNames_.count(name + suffix));
    name += suffix;
  }
  return pushUrl() + "/" + name;
}

Result<std::string> OLChunkedQueue::getHandlerForPath(const std::string& path) {
  return path.substr(path.find_last_of('/') + 1);
}

Result<std::optional<std::string>> OLChunkedQueue::getPathFromHandler(
    const std::optional<std::string>& handler) {
  if (handler) return std::optional<std::string>(chunksFolder() + "/" + *handler);
  return std::optional<std::string>(chunksFolder() + "/" + std::to_string(chunkKeys().front()));
}

IntakeRecord OLChunkedQueue::recordOf(const OLBaseEvent& event) {
  return {event.uniqueName(), event.eventType, StorableTraits<OLBaseEvent>::archive(event)};
}

Result<void> OLChunkedQueue::append(const IntakeRecord& record) {
  const std::string& bytes = record.archive;
  std::string path = pathForName(record.fileName);
  const std::string folder = path.substr(0, path.find_last_of('/'));
  auto fileOf = [](const std::string& p) { return p.substr(p.find_last_of('/') + 1); };
  logLine(*platform_, "Writing " + fileOf(path) + " to " + folder + " (" +
                          std::to_string(bytes.size()) + " bytes) #" + record.eventType);
  // Each event has a file name of its own, written once: no rename is needed.
  // A file a crash cut short is skipped as undecodable when its chunk is read;
  // its append never completed.
  auto& files = *platform_->files;
  auto written = files.writeNewFile(path, bytes);
  if (!written) {
    // The folder may have vanished behind the queue's back: make it and try once more.
    (void)files.createDirectories(folder);
    written = files.writeNewFile(path, bytes);
  }
  // A name this run did not write, in a chunk key reused after the keys
  // wrapped while its older chunk still waits: the next free name, or the
  // same failure would come back on every retry.
  for (int attempt = 0; !written && attempt < 8 && files.exists(path); ++attempt) {
    pushNames_.insert(fileOf(path));
    path = pathForName(record.fileName);
    written = files.writeNewFile(path, bytes);
  }
  if (!written) return written.error();
  pushNames_.insert(fileOf(path));
  setPushChunkSize(pushChunkSize() + static_cast<int64_t>(bytes.size()));
  auto& stats = chunkStats_[_chunkKeys->back()];
  if (stats.first < 0) stats = {0, 0};
  stats.first += static_cast<int64_t>(bytes.size());
  stats.second += 1;
  std::lock_guard lock(snapshotMutex_);
  refreshSnapshotLocked();
  return {};
}

Result<std::vector<std::shared_ptr<OLBaseEvent>>> OLChunkedQueue::popChunk(
    std::optional<std::string>& handler, bool withRemove) {
  auto folder = getPathFromHandler(handler);
  if (!folder) return folder.error();
  const std::string path = **folder;
  if (_pushUrl && path == *_pushUrl) {
    logLine(*platform_, "#### Generating a new push url different than the popOne");
    nextPushUrl();
  }
  std::vector<std::shared_ptr<OLBaseEvent>> events;
  auto names = platform_->files->listDirectory(path);
  if (!names) {
    if (platform_->files->isDirectory(path)) return names.error();
    names = std::vector<std::string>{};  // an empty chunk whose folder was never made
  }
  // A listing in name order, so that events of one instant keep a stable order.
  std::sort(names->begin(), names->end());
  for (const auto& n : *names) {
    auto bytes = platform_->files->readFile(path + "/" + n);
    if (!bytes) continue;
    auto event = decodeEvent(*bytes);
    if (!event) {
      logLine(*platform_, "Exceptio in unarchive " + n + " " + event.error().description());
      continue;
    }
    events.push_back(std::move(*event));
  }
  std::stable_sort(events.begin(), events.end(),
                   [](const auto& a, const auto& b) { return a->creationDate < b->creationDate; });
  handler = path.substr(path.find_last_of('/') + 1);
  if (withRemove) {
    if (auto removed = removeChunk(*handler); !removed) return removed.error();
  }
  return events;
}

void OLChunkedQueue::discardFolder(const std::string& folder) {
  std::shared_ptr<platform::FileSystem> files = platform_->files;
  remover_->async([files, folder, stopping = stopping_.flag] {
    if (!stopping->load()) (void)files->removeAll(folder);
  });
}

Result<void> OLChunkedQueue::removeChunk(const std::string& handler) {
  // Set aside in one rename, so the chunk is gone from the queue at once and
  // its files are removed meanwhile; where renaming fails, removed here.
  const std::string folder = chunksFolder() + "/" + handler;
  const std::string aside = sentFolder() + "/" + handler + "-" + std::to_string(++discarded_) +
                            "-" +
                            std::to_string(static_cast<int64_t>(platform_->clock->now() * 1e6));
  auto moved = platform_->files->rename(folder, aside);
  if (!moved && platform_->files->exists(folder)) {
    (void)platform_->files->createDirectories(sentFolder());
    moved = platform_->files->rename(folder, aside);
  }
  if (moved) {
    discardFolder(aside);
  } else if (auto removed = platform_->files->removeAll(folder); !removed) {
    return removed;
  }
  auto keys = chunkKeys();
  auto key = parseKey(handler);
  if (key) {
    keys.erase(std::remove(keys.begin(), keys.end(), *key), keys.end());
    chunkStats_.erase(*key);
  }
  setChunkKeys(keys);
  if (_chunkKeys->empty()) {
    // Removing the last chunk starts the queue again at chunk 1.
    _pushUrl.reset();
    _chunkKeys.reset();
    ensureKeys();
  }
  std::lock_guard lock(snapshotMutex_);
  refreshSnapshotLocked();
  return {};
}

Result<std::size_t> OLChunkedQueue::count() {
  auto folder = getPathFromHandler(std::nullopt);
  if (!folder) return folder.error();
  auto names = platform_->files->listDirectory(**folder);
  if (!names) {
    if (!platform_->files->exists(**folder)) return std::size_t{0};
    return names.error();
  }
  return names->size();
}

void OLChunkedQueue::refreshSnapshotLocked() {
  Snapshot s;
  if (_chunkKeys && !_chunkKeys->empty()) {
    s.chunkCount = _chunkKeys->size();
    auto& stats = chunkStats_[_chunkKeys->front()];
    if (stats.first < 0) {
      // The oldest chunk of a restarted queue: counted once, when it becomes the oldest.
      const std::string folder = chunksFolder() + "/" + std::to_string(_chunkKeys->front());
      auto names = platform_->files->listDirectory(folder);
      stats = {static_cast<int64_t>(getFolderSize(folder)),
               names ? static_cast<int64_t>(names->size()) : 0};
    }
    s.oldestBytes = stats.first;
    s.oldestCount = stats.second;
  }
  snapshot_ = s;
}

OLChunkedQueue::Snapshot OLChunkedQueue::snapshot() const {
  std::lock_guard lock(snapshotMutex_);
  return snapshot_;
}

}  // namespace ostrel
