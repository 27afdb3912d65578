#pragma once
#include <memory>
#include <optional>
#include <string>

#include "ostrel/app_info.h"
#include "ostrel/export.h"
#include "ostrel/platform/clock.h"
#include "ostrel/platform/crypto.h"
#include "ostrel/platform/deployment.h"
#include "ostrel/platform/device_facts.h"
#include "ostrel/platform/file_system.h"
#include "ostrel/platform/http_client.h"
#include "ostrel/platform/key_value_store.h"
#include "ostrel/platform/life_cycle.h"
#include "ostrel/platform/local_notifications.h"
#include "ostrel/platform/log_sink.h"
#include "ostrel/platform/receipt_source.h"
#include "ostrel/platform/remote_notifications.h"
#include "ostrel/platform/scheduler.h"
#include "ostrel/platform/web_view.h"
#include "ostrel/result.h"

namespace ostrel {

// Everything the library needs from the operating system, in one bundle handed
// to the facade. Any member left empty is filled with the default implementation.
// A Platform made in code reads no deployment or network setting from the
// environment: it reaches the production service unless the host says otherwise.
struct OSTREL_API Platform {
  std::shared_ptr<platform::HttpClient> http;
  std::shared_ptr<platform::Crypto> crypto;
  std::shared_ptr<platform::Clock> clock;
  std::shared_ptr<platform::FileSystem> files;
  std::shared_ptr<platform::KeyValueStore> settings;
  std::shared_ptr<platform::LogSink> log;
  std::shared_ptr<platform::Scheduler> scheduler;
  std::shared_ptr<platform::AppLifeCycle> lifeCycle;
  std::shared_ptr<platform::DeviceFacts> deviceFacts;
  std::shared_ptr<platform::RemoteNotifications> remoteNotifications;
  std::shared_ptr<platform::LocalNotifications> localNotifications;
  std::shared_ptr<platform::WebView> webView;
  std::shared_ptr<platform::ReceiptSource> receipts;
  // Where the default file system keeps the library's files when `files` is
  // empty; unset: the default storage root (see defaults()).
  std::optional<std::string> storageRoot;
  // The host application's identity, laid over what `deviceFacts` reports.
  AppInfo app;
  Deployment deployment;
  // How the default HTTP client (made when `http` is empty) reaches the service.
  NetworkOverrides network;

  // The defaults for this machine (Linux/desktop): libcurl, OpenSSL, the storage
  // root ($OSTREL_STORAGE_DIR, else $XDG_DATA_HOME or ~/.local/share, + "/Ostrel"),
  // settings in a file under it, stdout for the log, local notifications kept
  // under the storage root, the store receipt from a file. The production
  // deployment, whatever the environment says.
  static Platform defaults();
  // The one way in for the environment's deployment overrides, for tools, tests
  // and staging builds: a Platform (members empty, as made in code) with
  // OSTREL_SERVICE_DOMAIN (a host name), OSTREL_SERVICE_SCHEME ("https" or
  // "http"), OSTREL_CONNECT_TO (ADDRESS:PORT) and OSTREL_CA_FILE (a readable PEM
  // file) applied. A variable that is set but not valid fails the whole call
  // with OstrelInitializationError naming it; an empty one counts as unset.
  // Any thread.
  static Result<Platform> fromEnvironment();
  // Fills every empty member with its default.
  Platform completed() const;
};

}  // namespace ostrel
