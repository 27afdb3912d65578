#pragma once
// The default (Linux/desktop) implementation of each platform piece.
#include <memory>
#include <string>

#include "ostrel/platform.h"

namespace ostrel::platform {

std::shared_ptr<HttpClient> makeCurlHttpClient(NetworkOverrides overrides);
std::shared_ptr<Crypto> makeOpenSslCrypto();
// Initialises OpenSSL once, without the exit handler that would free it under
// the library's threads; before libcurl or any crypto call.
void initTlsLibrary();
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
// No push service on a desktop: registration reports that it is unavailable.
std::shared_ptr<RemoteNotifications> makeDesktopRemoteNotifications();
// Scheduled notifications kept as files under the storage root, delivered at their
// instant through `scheduler`, which the caller keeps alive.
std::shared_ptr<LocalNotifications> makeDesktopLocalNotifications(
    std::shared_ptr<FileSystem> files, std::shared_ptr<Scheduler> scheduler,
    std::shared_ptr<Clock> clock);
// Names the page in the log instead of drawing it.
std::shared_ptr<WebView> makeLoggingWebView(std::shared_ptr<LogSink> log);
// The receipt file named by the host, else $OSTREL_RECEIPT_FILE.
std::shared_ptr<ReceiptSource> makeFileReceiptSource(std::shared_ptr<FileSystem> files);

}  // namespace ostrel::platform
