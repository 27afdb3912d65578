#include "push/pending_pushes.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "push/push_archive.h"

namespace ostrel {
namespace {

// Fixed width, so that a listing sorted by name is in arrival order too.
std::string fileName(uint64_t number) {
  char name[32];
  std::snprintf(name, sizeof name, "%020llu", static_cast<unsigned long long>(number));
  return name;
}

std::optional<uint64_t> numberOf(const std::string& name) {
  uint64_t number = 0;
  auto [end, ec] = std::from_chars(name.data(), name.data() + name.size(), number);
  if (ec != std::errc() || end != name.data() + name.size()) return std::nullopt;
  return number;
}

}  // namespace

PendingPushes::PendingPushes(PlatformRef platform, std::string folder)
    : platform_(std::move(platform)), folder_(std::move(folder)) {
  auto& files = *platform_->files;
  auto names = files.listDirectory(folder_);
  if (!names) return;
  for (const auto& name : *names) {
    const std::string path = folder_ + "/" + name;
    if (auto number = numberOf(name)) {
      auto bytes = files.readFile(path);
      if (auto push = bytes ? decodePush(*bytes) : bytes.error(); push) {
        insert({*number, path, *push});
        next_ = std::max(next_, *number + 1);
        continue;
      }
    }
    logLine(*platform_, "Dropping unreadable pending push " + name);
    (void)files.remove(path);
  }
}

void PendingPushes::setCallback(Callback callback) {
  {
    MutexLock lock(mutex_);
    callback_ = std::move(callback);
  }
  deliver();
}

void PendingPushes::add(std::shared_ptr<OLPushBase> push) {
  uint64_t number;
  {
    MutexLock lock(mutex_);
    number = next_++;
  }
  // Stored before it can be handed over: a push the app never took survives a
  // stop; one that cannot be stored is still handed over from memory.
  auto& files = *platform_->files;
  std::string path = folder_ + "/" + fileName(number);
  auto stored = files.createDirectories(folder_);
  if (stored) stored = files.writeFileAtomic(path, archivePush(*push));
  if (!stored) {
    logLine(*platform_, "Pending push kept in memory only " + stored.error().description());
    path.clear();
  }
  {
    MutexLock lock(mutex_);
    insert({number, std::move(path), std::move(push)});
  }
  deliver();
}

void PendingPushes::insert(Entry entry) {
  auto at = std::upper_bound(waiting_.begin(), waiting_.end(), entry.number,
                             [](uint64_t n, const Entry& e) { return n < e.number; });
  waiting_.insert(at, std::move(entry));
}

void PendingPushes::deliver() {
  MutexLock lock(mutex_);
  // Another thread is handing pushes over: it takes the new ones too, in order.
  if (delivering_) return;
  delivering_ = true;
  while (callback_ && !waiting_.empty()) {
    Entry entry = std::move(waiting_.front());
    waiting_.pop_front();
    Callback callback = callback_;
    lock.unlock();
    callback(entry.push);
    if (!entry.file.empty()) (void)platform_->files->remove(entry.file);
    lock.lock();
  }
  delivering_ = false;
}

}  // namespace ostrel
