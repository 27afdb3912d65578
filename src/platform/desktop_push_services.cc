// The desktop's stand-ins for a phone's push service, web view and store receipt.
#include <cstdlib>

#include "platform/defaults.h"
#include "platform/local_notification_store.h"

namespace ostrel::platform {
namespace {

// A desktop has no push service to hand out device tokens: the host sets one
// itself (setDeviceToken) when it has its own channel.
class NoRemoteNotifications : public RemoteNotifications {
 public:
  void registerForRemoteNotifications(Completion completion) override {
    completion(OLError::LocalError(LocalErrorCodes::PushNotificationDeviceRegistrationError,
                                   "Remote notifications are not available on this device"));
  }
};

// Without a window system to draw on, the page is named in the log.
class LoggingWebView : public WebView {
 public:
  explicit LoggingWebView(std::shared_ptr<LogSink> log) : log_(std::move(log)) {}
  Result<void> show(const std::string& url, void*, void*) override {
    log_->write("Showing web content " + url);
    return {};
  }

 private:
  std::shared_ptr<LogSink> log_;
};

// The receipt is a file: the one named by the host, else $OSTREL_RECEIPT_FILE.
class FileReceiptSource : public ReceiptSource {
 public:
  explicit FileReceiptSource(std::shared_ptr<FileSystem> files) : files_(std::move(files)) {}
  Result<std::string> readReceipt(const std::optional<std::string>& location) override {
    auto path = resolve(location);
    if (!path) {
      return OLError::LocalError(LocalErrorCodes::PaymentSerializationError,
                                 "No store receipt location");
    }
    return files_->readFile(*path);
  }
  std::string describe(const std::optional<std::string>& location) const override {
    return resolve(location).value_or("");
  }

 private:
  static std::optional<std::string> resolve(const std::optional<std::string>& location) {
    if (location) return location;
    if (const char* env = std::getenv("OSTREL_RECEIPT_FILE"); env && *env) return env;
    return std::nullopt;
  }
  std::shared_ptr<FileSystem> files_;
};

}  // namespace

std::shared_ptr<RemoteNotifications> makeDesktopRemoteNotifications() {
  return std::make_shared<NoRemoteNotifications>();
}
std::shared_ptr<LocalNotifications> makeDesktopLocalNotifications(
    std::shared_ptr<FileSystem> files, std::shared_ptr<Scheduler> scheduler,
    std::shared_ptr<Clock> clock) {
  return std::make_shared<LocalNotificationStore>(std::move(files), std::move(scheduler),
                                                  std::move(clock));
}
std::shared_ptr<WebView> makeLoggingWebView(std::shared_ptr<LogSink> log) {
  return std::make_shared<LoggingWebView>(std::move(log));
}
std::shared_ptr<ReceiptSource> makeFileReceiptSource(std::shared_ptr<FileSystem> files) {
  return std::make_shared<FileReceiptSource>(std::move(files));
}

}  // namespace ostrel::platform
