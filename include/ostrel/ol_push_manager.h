#pragma once
// Everything about push notifications for the host: the device token and its
// registration with the service (kept linked to whoever is logged), received
// notifications turned into push objects for the app's callback, and the
// analytics of pushes.
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "ostrel/json.h"
#include "ostrel/ol_error.h"
#include "ostrel/ol_push.h"
#include "ostrel/ol_push_builder.h"
#include "ostrel/platform/local_notifications.h"
#include "ostrel/result.h"

namespace ostrel {

class ConnectorBuilder;
class OLStatus;
class OLQueueManager;

// What the app was launched with: the notification the user tapped, if any.
struct LaunchOptions {
  std::optional<Json> remoteNotification;
  std::optional<platform::LocalNotification> localNotification;
};

class OLPushManager : public std::enable_shared_from_this<OLPushManager> {
 public:
  using PushCallback = std::function<void(std::shared_ptr<OLPushBase>)>;

  static std::shared_ptr<OLPushManager> make(std::shared_ptr<OLStatus> ostrelState,
                                             std::shared_ptr<ConnectorBuilder> buildConnector,
                                             std::weak_ptr<OLQueueManager> eventManager);
  ~OLPushManager();

  // Asks the platform for permission and a device token; the token (or the
  // refusal) comes back through setDeviceToken / didFailToRegister...
  void registerDevice();
  // Fails with "Token not recognized" for an empty token.
  Result<void> setDeviceToken(const std::string& tokenBytes);
  void didFailToRegisterForRemoteNotificationsWithError(const OLError& error);
  void setRegistrationError(const OLError& error);
  void registerDeviceToOstrel();
  bool isRegistered() const { return registered_.load(); }
  std::optional<std::string> deviceToken() const;

  // Pushes that arrived before a callback was set are handed to it now.
  OLPushManager& setPushCallback(PushCallback callback);
  void setNotifyLaunchOptions(const LaunchOptions& launchOptions);
  // A remote payload received while the app runs (`appIsBackground`: the user opened it).
  Result<void> processRemoteNotification(const Json& userInfo, bool appIsBackground = false);
  Result<void> processLocalNotification(const platform::LocalNotification& notification,
                                        bool appIsBackground = false);
  Result<void> handlePushNotificationReceive(std::shared_ptr<OLPushBase> push,
                                             bool appIsBackground);
  // Shows the page of the last URL push received; fails when there is none.
  Result<void> showInterstitialContent(void* onViewController, void* navigationDelegate);
  OLPushBuilder getPushBuilder();
  void terminationActions();

  // The text form of a device token: its bytes in lower-case hexadecimal.
  static std::optional<std::string> parseToken(const std::string& tokenBytes);

 private:
  OLPushManager() = default;
  void setRegistered(bool value);
  void recordRegistration(bool succeeded, const std::optional<std::string>& reason);
  void recordReceived(const OLPushBase& push, PushReceiveAction action);
  void deliverPending();

  std::shared_ptr<OLStatus> _ostrelState;
  std::shared_ptr<ConnectorBuilder> _buildConnector;
  std::weak_ptr<OLQueueManager> _eventManager;
  mutable std::mutex mutex_;
  PushCallback _onPushReceivedCallback;
  std::optional<std::string> _deviceToken;
  bool _syncNotification = false;
  std::atomic<bool> registered_{false};
};

}  // namespace ostrel
