#include "platform/defaults.h"

#include "platform/app_info_facts.h"

namespace ostrel {

Platform Platform::defaults() {
  return Platform{}.completed();
}

Platform Platform::completed() const {
  Platform p = *this;
  if (!p.clock) p.clock = platform::makeSystemClock();
  if (!p.crypto) p.crypto = platform::makeOpenSslCrypto();
  if (!p.log) p.log = platform::makeStdoutLogSink();
  if (!p.files) {
    p.files = platform::makePosixFileSystem(p.storageRoot.value_or(platform::defaultStorageRoot()));
  }
  if (!p.settings) {
    p.settings =
        platform::makeFileSettingsStore(p.files, p.files->storageRoot() + "/settings.json");
  }
  if (!p.scheduler) p.scheduler = platform::makeThreadScheduler();
  if (!p.deviceFacts) p.deviceFacts = platform::makeLinuxDeviceFacts(p.settings, p.crypto);
  // Laying the same identity over facts that already carry it changes nothing,
  // so completing twice is harmless.
  if (!p.app.empty()) p.deviceFacts = platform::withAppInfo(p.deviceFacts, p.app);
  if (!p.lifeCycle) p.lifeCycle = std::make_shared<platform::AppLifeCycle>();
  if (!p.remoteNotifications) p.remoteNotifications = platform::makeDesktopRemoteNotifications();
  if (!p.localNotifications) {
    p.localNotifications = platform::makeDesktopLocalNotifications(p.files, p.scheduler, p.clock);
  }
  if (!p.webView) p.webView = platform::makeLoggingWebView(p.log);
  if (!p.receipts) p.receipts = platform::makeFileReceiptSource(p.files);
  if (!p.http) p.http = platform::makeCurlHttpClient(p.network);
  return p;
}

}  // namespace ostrel
