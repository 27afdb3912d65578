#pragma once
// Stores of keyed-archived objects: one folder per store under the library's
// folder, one file per item. Subclasses decide how an item becomes a file name
// (its handler) and back.
#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ostrel/result.h"
#include "platform/platform_ref.h"

namespace ostrel {

// How a stored class is archived, named and described. Specialised per class:
//   static std::string archive(const T&);
//   static Result<std::shared_ptr<T>> unarchive(std::string_view bytes);
//   static std::string key(const T&);          // its name in a map store
//   static std::string description(const T&, const Platform&);  // for log lines
template <class T>
struct StorableTraits;

// The kinds of items the stores hold.
enum class StoredItemType { Event, FlowEvent, Flag, Token, UserMetaInfo };

OLError abstractStoreCall();

template <class T>
class OLDiskStorage {
 public:
  OLDiskStorage(PlatformRef platform, std::string name)
      : platform_(std::move(platform)), name_(std::move(name)) {}
  virtual ~OLDiskStorage() = default;

  virtual Result<std::string> getStorePathFromItem(const T&) { return abstractStoreCall(); }
  virtual Result<std::string> getHandlerForPath(const std::string&) { return abstractStoreCall(); }
  virtual Result<std::optional<std::string>> getPathFromHandler(const std::optional<std::string>&) {
    return abstractStoreCall();
  }

  std::string ostrelUrl() {
    std::string root = platform_->files->storageRoot();
    (void)platform_->files->createDirectories(root);
    return root;
  }

  // The store's folder, created on first use.
  std::string storageUrl() {
    if (_storageUrl) return *_storageUrl;
    std::string url = ostrelUrl() + "/" + name_;
    (void)platform_->files->createDirectories(url);
    _storageUrl = url;
    return url;
  }

  Result<std::string> add(const T& item) {
    const std::string bytes = StorableTraits<T>::archive(item);
    auto path = getStorePathFromItem(item);
    if (!path) return path.error();
    auto handler = getHandlerForPath(*path);
    if (!handler) return handler.error();
    const std::string folder = path->substr(0, path->find_last_of('/'));
    // The folder may have vanished behind the store's back.
    if (auto made = platform_->files->createDirectories(folder); !made) return made.error();
    logLine(*platform_, "Writing " + *handler + " to " + folder + " (" +
                            std::to_string(bytes.size()) + " bytes) #" +
                            StorableTraits<T>::description(item, *platform_));
    if (auto written = platform_->files->writeFileAtomic(*path, bytes); !written) {
      return written.error();
    }
    return *handler;
  }

  // The item (nullptr when there is none); an item that cannot be decoded is an
  // error and stays in place.
  Result<std::shared_ptr<T>> get(const std::optional<std::string>& handler, bool withRemove) {
    auto path = getPathFromHandler(handler);
    if (!path) return path.error();
    if (!*path) return std::shared_ptr<T>();
    auto bytes = platform_->files->readFile(**path);
    if (!bytes) return std::shared_ptr<T>();
    auto item = StorableTraits<T>::unarchive(*bytes);
    if (!item) {
      return OLError::LocalError(
          LocalErrorCodes::StorageError,
          "Unable to unarchive " + (*path)->substr((*path)->find_last_of('/') + 1), std::nullopt,
          Json{{"path", **path}, {"error", item.error().description()}});
    }
    if (withRemove) (void)platform_->files->remove(**path);
    return *item;
  }

  Result<void> remove(const std::string& handler) {
    auto path = getPathFromHandler(handler);
    if (!path) return path.error();
    if (!*path) return {};
    return platform_->files->removeAll(**path);
  }

  Result<void> clear() {
    const std::string folder = storageUrl();
    auto names = platform_->files->listDirectory(folder);
    if (!names) return names.error();
    for (const auto& n : *names) {
      if (auto removed = platform_->files->removeAll(folder + "/" + n); !removed) return removed;
      logLine(*platform_, "Deleted " + folder + "/" + n);
    }
    // Leftovers of writes a crash interrupted are not listed: the folder goes
    // as a whole, and comes back empty.
    if (auto removed = platform_->files->removeAll(folder); !removed) return removed;
    return platform_->files->createDirectories(folder);
  }

  Result<std::size_t> count() {
    auto names = platform_->files->listDirectory(storageUrl());
    if (!names) return names.error();
    logLine(*platform_, "Store " + name_ + " has " + std::to_string(names->size()) + " files ");
    return names->size();
  }

  // Bytes of every file under the folder.
  uint64_t getFolderSize(const std::string& folderUrl) {
    uint64_t total = 0;
    auto names = platform_->files->listDirectory(folderUrl);
    if (!names) return 0;
    for (const auto& n : *names) {
      const std::string path = folderUrl + "/" + n;
      if (platform_->files->isDirectory(path)) {
        total += getFolderSize(path);
      } else if (auto size = platform_->files->fileSize(path)) {
        total += *size;
      }
    }
    return total;
  }

  const std::string& name() const { return name_; }
  const Platform& platform() const { return *platform_; }

 protected:
  PlatformRef platform_;
  std::string name_;
  std::optional<std::string> _storageUrl;
};

// One file per key.
template <class T>
class OLMap : public OLDiskStorage<T> {
 public:
  using OLDiskStorage<T>::OLDiskStorage;

  Result<std::string> getStorePathFromItem(const T& item) override {
    return this->storageUrl() + "/" + StorableTraits<T>::key(item);
  }
  Result<std::string> getHandlerForPath(const std::string& path) override {
    return path.substr(path.find_last_of('/') + 1);
  }
  Result<std::optional<std::string>> getPathFromHandler(
      const std::optional<std::string>& handler) override {
    if (!handler) return std::optional<std::string>();
    return std::optional<std::string>(this->storageUrl() + "/" + *handler);
  }
};

// A map read as a stack: without a handler, the last file in sorted order.
template <class T>
class OLTypedStack : public OLMap<T> {
 public:
  using OLMap<T>::OLMap;

  Result<std::optional<std::string>> getPathFromHandler(
      const std::optional<std::string>& handler) override {
    if (handler) return OLMap<T>::getPathFromHandler(handler);
    auto names = this->platform_->files->listDirectory(this->storageUrl());
    if (!names) return names.error();
    if (names->empty()) return std::optional<std::string>();
    std::sort(names->begin(), names->end());
    return std::optional<std::string>(this->storageUrl() + "/" + names->back());
  }
};

}  // namespace ostrel
