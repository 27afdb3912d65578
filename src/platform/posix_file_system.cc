#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "platform/defaults.h"

namespace ostrel::platform {
namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;

OLError storageError(const std::string& what, const std::string& path, int err) {
  return OLError::LocalError(LocalErrorCodes::StorageError, what + " " + path,
                             PlatformError{"NSPOSIXErrorDomain", err, std::strerror(err)},
                             Json{{"path", path}});
}

std::string parentOf(const std::string& path) {
  auto slash = path.find_last_of('/');
  if (slash == std::string::npos || slash == 0) return "/";
  return path.substr(0, slash);
}

class PosixMappedFile final : public MappedFile {
 public:
  PosixMappedFile(char* data, std::size_t size) : data_(data), size_(size) {}
  ~PosixMappedFile() override { ::munmap(data_, size_); }
  PosixMappedFile(const PosixMappedFile&) = delete;
  PosixMappedFile& operator=(const PosixMappedFile&) = delete;
  char* data() override { return data_; }
  std::size_t size() const override { return size_; }

 private:
  char* const data_;
  const std::size_t size_;
};

class PosixFileSystem final : public FileSystem {
 public:
  explicit PosixFileSystem(std::string root) : root_(std::move(root)) {}

  std::string storageRoot() const override { return root_; }

  Result<void> createDirectories(const std::string& path) override {
    if (isDirectory(path)) return {};
    // Walk down from the first missing ancestor so each new folder gets our mode.
    std::string partial;
    std::size_t pos = 0;
    while (pos != std::string::npos) {
      pos = path.find('/', pos + 1);
      partial = path.substr(0, pos);
      if (partial.empty()) continue;
      if (::mkdir(partial.c_str(), kFolderMode) != 0 && errno != EEXIST) {
        return storageError("Cannot create directory", partial, errno);
      }
    }
    if (!isDirectory(path)) return storageError("Not a directory", path, ENOTDIR);
    return {};
  }

  Result<void> writeFileAtomic(const std::string& path, const std::string& bytes) override {
    // A per-process counter keeps temporary names unique across threads.
    static std::atomic<unsigned long> counter{0};
    std::string tmp = parentOf(path) + "/.tmp-" + std::to_string(::getpid()) + "-" +
                      std::to_string(counter.fetch_add(1));
    if (auto written = writeWhole(tmp, bytes, O_TRUNC); !written) return written;
    if (::rename(tmp.c_str(), path.c_str()) != 0) {
      int err = errno;
      ::unlink(tmp.c_str());
      return storageError("Cannot rename file to", path, err);
    }
    return {};
  }

  Result<void> writeNewFile(const std::string& path, const std::string& bytes) override {
    return writeWhole(path, bytes, O_EXCL);
  }

  Result<void> appendToFile(const std::string& path, const std::string& bytes) override {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kFileMode);
    if (fd < 0) return storageError("Cannot open file", path, errno);
    auto written = writeAll(fd, path, bytes);
    if (::close(fd) != 0 && written) return storageError("Cannot close file", path, errno);
    return written;
  }

  Result<std::unique_ptr<MappedFile>> mapNewFile(const std::string& path,
                                                 std::size_t size) override {
    int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode);
    if (fd < 0) return storageError("Cannot create file", path, errno);
    auto fail = [&](const char* what, int err) {
      ::close(fd);
      ::unlink(path.c_str());
      return storageError(what, path, err);
    };
    if (size == 0) return fail("Cannot map an empty file", EINVAL);
    // The room is taken now: a full disk is an error here, not a SIGBUS at a
    // store into the mapping later.
    if (int err = ::posix_fallocate(fd, 0, static_cast<off_t>(size)); err != 0) {
      return fail("Cannot reserve room for", err);
    }
    void* at = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (at == MAP_FAILED) return fail("Cannot map", errno);
    ::close(fd);  // the mapping keeps the file open
    // One store per page faults it in writable and dirty, here rather than
    // on the first store of the library's caller.
    auto* bytes = static_cast<volatile char*>(at);
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    for (std::size_t i = 0; i < size; i += page) bytes[i] = 0;
    return std::unique_ptr<MappedFile>(new PosixMappedFile(static_cast<char*>(at), size));
  }

  Result<std::string> readFileRange(const std::string& path, uint64_t offset,
                                    std::size_t length) const override {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return storageError("Cannot open file", path, errno);
    std::string out;
    char buf[16384];
    while (out.size() < length) {
      const std::size_t want = std::min(sizeof buf, length - out.size());
      ssize_t n = ::pread(fd, buf, want, static_cast<off_t>(offset + out.size()));
      if (n < 0) {
        if (errno == EINTR) continue;
        int err = errno;
        ::close(fd);
        return storageError("Cannot read file", path, err);
      }
      if (n == 0) break;
      out.append(buf, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return out;
  }

  Result<std::string> readFile(const std::string& path) const override {
    return readFileRange(path, 0, std::string::npos);
  }

  bool exists(const std::string& path) const override {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
  }

  bool isDirectory(const std::string& path) const override {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
  }

  Result<std::vector<std::string>> listDirectory(const std::string& path) const override {
    DIR* dir = ::opendir(path.c_str());
    if (dir == nullptr) return storageError("Cannot list directory", path, errno);
    std::vector<std::string> names;
    while (struct dirent* entry = ::readdir(dir)) {
      std::string_view name = entry->d_name;
      if (name == "." || name == "..") continue;
      // Half-written files of an interrupted atomic write are not entries.
      if (name.starts_with(".tmp-")) continue;
      names.emplace_back(name);
    }
    ::closedir(dir);
    return names;
  }

  Result<void> remove(const std::string& path) override {
    if (::unlink(path.c_str()) == 0) return {};
    if (errno == ENOENT) return {};
    if (errno == EISDIR || errno == EPERM) {
      if (::rmdir(path.c_str()) == 0 || errno == ENOENT) return {};
    }
    return storageError("Cannot remove", path, errno);
  }

  Result<void> removeAll(const std::string& path) override {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
    if (ec) return storageError("Cannot remove", path, ec.value());
    return {};
  }

  Result<void> rename(const std::string& from, const std::string& to) override {
    if (::rename(from.c_str(), to.c_str()) != 0) return storageError("Cannot rename", from, errno);
    return {};
  }

  Result<uint64_t> fileSize(const std::string& path) const override {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return storageError("Cannot stat", path, errno);
    return static_cast<uint64_t>(st.st_size);
  }

 private:
  static Result<void> writeAll(int fd, const std::string& path, const std::string& bytes) {
    const char* p = bytes.data();
    std::size_t left = bytes.size();
    while (left > 0) {
      ssize_t n = ::write(fd, p, left);
      if (n < 0) {
        if (errno == EINTR) continue;
        return storageError("Cannot write file", path, errno);
      }
      p += n;
      left -= static_cast<std::size_t>(n);
    }
    return {};
  }

  // Creates `path` (with `createFlag`: O_TRUNC or O_EXCL) and writes all of
  // `bytes`; on failure nothing is left under that name.
  static Result<void> writeWhole(const std::string& path, const std::string& bytes,
                                 int createFlag) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | createFlag | O_CLOEXEC, kFileMode);
    if (fd < 0) return storageError("Cannot create file", path, errno);
    if (auto written = writeAll(fd, path, bytes); !written) {
      ::close(fd);
      ::unlink(path.c_str());
      return written;
    }
    if (::close(fd) != 0) {
      int err = errno;
      ::unlink(path.c_str());
      return storageError("Cannot close file", path, err);
    }
    return {};
  }

  std::string root_;
};

}  // namespace

std::string defaultStorageRoot() {
  auto env = [](const char* name) -> std::string {
    const char* v = std::getenv(name);
    return v ? v : "";
  };
  if (std::string dir = env("OSTREL_STORAGE_DIR"); !dir.empty()) return dir;
  std::string base = env("XDG_DATA_HOME");
  if (base.empty()) {
    std::string home = env("HOME");
    if (home.empty()) home = "/tmp";
    base = home + "/.local/share";
  }
  return base + "/Ostrel";
}

std::shared_ptr<FileSystem> makePosixFileSystem(std::string storageRoot) {
  return std::make_shared<PosixFileSystem>(std::move(storageRoot));
}

}  // namespace ostrel::platform
