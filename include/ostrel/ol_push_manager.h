#pragma once
// Everything about push notifications for the host: the device token and its
// registration with the service (kept linked to whoever is logged), received
// notifications turned into push objects for the app's callback, and the
// analytics of pushes.
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ostrel/export.h"
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
class PendingPushes;
class OstrelFacadeImpl;

// What the app was launched with: the notification the user tapped, if any.
struct OSTREL_API LaunchOptions {
  std::optional<Json> remoteNotification;
  std::optional<platform::LocalNotification> localNotification;
};

// Obtained from Ostrel::getPushManager. Every call may come from any thread.
// Replies of the service arrive on the HTTP client's thread; what a call does
// there is said beside it.
class OSTREL_API OLPushManager : public std::enable_shared_from_this<OLPushManager> {
 public:
  using PushCallback = std::function<void(std::shared_ptr<OLPushBase>)>;

  ~OLPushManager();

  // Asks the platform's push service (Platform::remoteNotifications) for
  // permission and a device token; the token comes back through setDeviceToken,
  // a refusal through didFailToRegisterForRemoteNotificationsWithError (a
  // "push registered" event with succeeded false). Linux and other desktops
  // have no push service: with the default platform this call always fails
  // that way ("Remote notifications are not available on this device"). A host
  // that gets a token from a channel of its own passes it with setDeviceToken,
  // without calling registerDevice at all.
  void registerDevice();
  // The push service's token, as raw bytes: registered with the service now
  // and again at every login and logout. Fails with "Token not recognized" for
  // an empty token.
  Result<void> setDeviceToken(const std::string& tokenBytes);
  void didFailToRegisterForRemoteNotificationsWithError(const OLError& error);
  void setRegistrationError(const OLError& error);
  void registerDeviceToOstrel();
  bool isRegistered() const;
  std::optional<std::string> deviceToken() const;

  // Every push received is handed to the callback exactly once, in arrival
  // order. Pushes that arrive while no callback is set (the one that launched
  // the app, typically) wait, kept on disk across a stop of the app, and are
  // handed to the next callback set. The callback runs on the thread that
  // hands the push over: the one that received it (processRemoteNotification
  // and its siblings) or the one that set the callback; never under a lock of
  // the library's, so it may call back into the manager.
  OLPushManager& setPushCallback(PushCallback callback);
  void setNotifyLaunchOptions(const LaunchOptions& launchOptions);
  // A remote payload received while the app runs (`appIsBackground`: the user
  // opened it). Fails with the payload's PushNotificationError, and nothing is
  // handed over; otherwise as handlePushNotificationReceive.
  Result<void> processRemoteNotification(const Json& userInfo, bool appIsBackground = false);
  Result<void> processLocalNotification(const platform::LocalNotification& notification,
                                        bool appIsBackground = false);
  // Records the received-push event and hands the push to the callback. Fails
  // when the event could not be recorded; the push is handed over all the same.
  Result<void> handlePushNotificationReceive(std::shared_ptr<OLPushBase> push,
                                             bool appIsBackground);
  // Shows the page of the last URL push received through Platform::webView;
  // fails when there is none. Both handles are the host's own, passed to the
  // web view untouched and never read by the library: on a phone the view
  // controller to present over and the web view's navigation delegate (each
  // may be null when the host's web view needs none); the desktop default
  // ignores them and names the page in the log.
  Result<void> showInterstitialContent(void* onViewController, void* navigationDelegate);
  OLPushBuilder getPushBuilder();
  void terminationActions();

  // The text form of a device token: its bytes in lower-case hexadecimal.
  static std::optional<std::string> parseToken(const std::string& tokenBytes);

 private:
  friend class OstrelFacadeImpl;
  static std::shared_ptr<OLPushManager> make(std::shared_ptr<OLStatus> ostrelState,
                                             std::shared_ptr<ConnectorBuilder> buildConnector,
                                             std::weak_ptr<OLQueueManager> eventManager);
  OLPushManager();
  void setRegistered(bool value);
  void recordRegistration(bool succeeded, const std::optional<std::string>& reason);
  Result<void> recordReceived(const OLPushBase& push, PushReceiveAction action);

  struct Fields;  // what the manager keeps and shares with its threads
  std::unique_ptr<Fields> d_;
};

}  // namespace ostrel
