#pragma once
// The default file system under a storage folder the host chose: every call
// goes to the default implementation (paths are absolute), only the root the
// library builds its paths from differs.
#include <memory>
#include <string>

#include "ostrel/platform/file_system.h"

namespace ostrel::capi {

class StorageRootFileSystem final : public platform::FileSystem {
 public:
  StorageRootFileSystem(std::string root, std::shared_ptr<platform::FileSystem> files)
      : root_(std::move(root)), files_(std::move(files)) {}
  // The default file system of this machine, whatever its root.
  static std::shared_ptr<platform::FileSystem> defaultFiles();

  std::string storageRoot() const override { return root_; }
  Result<void> createDirectories(const std::string& path) override {
    return files_->createDirectories(path);
  }
  Result<void> writeFileAtomic(const std::string& path, const std::string& bytes) override {
    return files_->writeFileAtomic(path, bytes);
  }
  Result<void> writeNewFile(const std::string& path, const std::string& bytes) override {
    return files_->writeNewFile(path, bytes);
  }
  Result<void> appendToFile(const std::string& path, const std::string& bytes) override {
    return files_->appendToFile(path, bytes);
  }
  Result<std::string> readFile(const std::string& path) const override {
    return files_->readFile(path);
  }
  Result<std::string> readFileRange(const std::string& path, uint64_t offset,
                                    std::size_t length) const override {
    return files_->readFileRange(path, offset, length);
  }
  bool exists(const std::string& path) const override { return files_->exists(path); }
  bool isDirectory(const std::string& path) const override { return files_->isDirectory(path); }
  Result<std::vector<std::string>> listDirectory(const std::string& path) const override {
    return files_->listDirectory(path);
  }
  Result<void> remove(const std::string& path) override { return files_->remove(path); }
  Result<void> removeAll(const std::string& path) override { return files_->removeAll(path); }
  Result<uint64_t> fileSize(const std::string& path) const override {
    return files_->fileSize(path);
  }

 private:
  std::string root_;
  std::shared_ptr<platform::FileSystem> files_;
};

}  // namespace ostrel::capi
