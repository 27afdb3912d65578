#pragma once
// The default (Linux/desktop) implementation of each platform piece.
#include <memory>
#include <string>

#include "ostrel/platform.h"

namespace ostrel::platform {

std::shared_ptr<HttpClient> makeCurlHttpClient(NetworkOverrides overrides);
std::shared_ptr<Crypto> makeOpenSslCrypto();
std::shared_ptr<Clock> makeSystemClock();
// The library's folder: $OSTREL_STORAGE_DIR when set, else
// ($XDG_DATA_HOME or ~/.local/share) + "/Ostrel".
std::string defaultStorageRoot();
std::shared_ptr<FileSystem> makePosixFileSystem(std::string storageRoot);
// Settings kept in one file, replaced atomically on every write.
std::shared_ptr<KeyValueStore> makeFileSettingsStore(std::shared_ptr<FileSystem> files,
                                                     std::string path);
std::shared_ptr<LogSink> makeStdoutLogSink();
std::shared_ptr<Scheduler> makeThreadScheduler();
// Facts of this Linux machine; the device identifier is kept in the settings.
std::shared_ptr<DeviceFacts> makeLinuxDeviceFacts(std::shared_ptr<KeyValueStore> settings,
                                                  std::shared_ptr<Crypto> crypto);

}  // namespace ostrel::platform
