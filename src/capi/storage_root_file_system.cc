#include "capi/storage_root_file_system.h"

#include "ostrel/platform.h"

namespace ostrel::capi {

std::shared_ptr<platform::FileSystem> StorageRootFileSystem::defaultFiles() {
  // The public surface offers the default file system only inside a complete
  // default platform; the rest of that bundle is released at once.
  static const std::shared_ptr<platform::FileSystem> files = Platform::defaults().files;
  return files;
}

}  // namespace ostrel::capi
