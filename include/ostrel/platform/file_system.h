#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ostrel/export.h"
#include "ostrel/result.h"

namespace ostrel::platform {

// A file mapped into memory for writing, shared with the file: a store into
// data() is in the file (the kernel's page cache) as soon as it is made, so it
// outlives a kill or a crash of the process; not a power cut. Any thread may
// store into it. Destroying it unmaps; the file keeps its bytes and its size.
class OSTREL_API MappedFile {
 public:
  virtual ~MappedFile() = default;
  virtual char* data() = 0;
  virtual std::size_t size() const = 0;
};

// The library's files. Paths are absolute. Folders are created private to the
// user (0700), files likewise (0600). Failures carry a PlatformError inside a
// LocalError StorageError.
class OSTREL_API FileSystem {
 public:
  virtual ~FileSystem() = default;
  // The folder under which the library keeps everything (it ends in "/Ostrel").
  virtual std::string storageRoot() const = 0;

  virtual Result<void> createDirectories(const std::string& path) = 0;
  // Writes to a temporary name and renames it into place, so that a crash never
  // leaves a half-written file under the final name.
  virtual Result<void> writeFileAtomic(const std::string& path, const std::string& bytes) = 0;
  // Creates a file that must not exist yet and writes it in place. A crash can
  // leave it half written, so it suits only content whose reader skips what it
  // cannot decode (a queued event); it spares the rename of writeFileAtomic.
  virtual Result<void> writeNewFile(const std::string& path, const std::string& bytes) {
    return writeFileAtomic(path, bytes);
  }
  // Appends the bytes to a file (created when missing) with one write, so that
  // what a crash leaves is a prefix of what was appended. The default suits a
  // host's file system that cannot append; it rewrites the whole file.
  virtual Result<void> appendToFile(const std::string& path, const std::string& bytes) {
    std::string whole;
    if (exists(path)) {
      auto old = readFile(path);
      if (!old) return old.error();
      whole = std::move(*old);
    }
    return writeFileAtomic(path, whole + bytes);
  }
  // Creates `path`, which must not exist, as `size` zero bytes whose room on
  // the disk is taken now, and maps it for writing with every page already
  // faulted in and dirty, so that a store into it waits neither for the disk
  // nor for a page fault (unless the kernel has written the page back since).
  // Called off the library's hot paths. Answers a null pointer when this file
  // system cannot map files: the library then writes with appendToFile.
  virtual Result<std::unique_ptr<MappedFile>> mapNewFile(const std::string& path,
                                                         std::size_t size) {
    (void)path;
    (void)size;
    return std::unique_ptr<MappedFile>();
  }
  virtual Result<std::string> readFile(const std::string& path) const = 0;
  // At most `length` bytes from `offset` on (fewer at the end of the file).
  virtual Result<std::string> readFileRange(const std::string& path, uint64_t offset,
                                            std::size_t length) const {
    auto whole = readFile(path);
    if (!whole) return whole.error();
    if (offset >= whole->size()) return std::string();
    return whole->substr(static_cast<std::size_t>(offset), length);
  }
  virtual bool exists(const std::string& path) const = 0;
  virtual bool isDirectory(const std::string& path) const = 0;
  // Names (not paths) of the entries of a folder, unsorted.
  virtual Result<std::vector<std::string>> listDirectory(const std::string& path) const = 0;
  // Removes a file or an empty folder; a missing path is no error.
  virtual Result<void> remove(const std::string& path) = 0;
  // Removes a path and everything under it; a missing path is no error.
  virtual Result<void> removeAll(const std::string& path) = 0;
  virtual Result<uint64_t> fileSize(const std::string& path) const = 0;
  // Moves a file or folder to `to` (same file system, `to` absent) in one step.
  // A file system that cannot answers an error, and the library then does
  // without: it removes instead of setting aside.
  virtual Result<void> rename(const std::string& from, const std::string& to) {
    (void)to;
    return Result<void>(
        OLError::LocalError(LocalErrorCodes::StorageError, "Cannot rename " + from));
  }
};

}  // namespace ostrel::platform
