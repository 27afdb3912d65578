#include "ostrel/ol_push_manager.h"

#include <atomic>
#include <mutex>

#include "core/device_information.h"
#include "events/grapheme.h"
#include "events/push_events.h"
#include "login/ol_user_status.h"
#include "ostrel/ol_notification.h"
#include "ostrel/ostrel.h"
#include "push/pending_pushes.h"
#include "queue/ol_queue_manager.h"
#include "status/ol_status.h"
#include "transport/connector_builder.h"

namespace ostrel {
namespace {

constexpr const char* kUserStateObserver = "io.ostrel.pushNotification";
// Pushes waiting for the host's callback, one archive per push.
std::string pendingFolder(const Platform& platform) {
  return platform.files->storageRoot() + "/PendingPushes";
}

std::string lowercase(std::string text) {
  for (auto& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

}  // namespace

struct OLPushManager::Fields {
  std::shared_ptr<OLStatus> ostrelState;
  std::shared_ptr<ConnectorBuilder> buildConnector;
  std::weak_ptr<OLQueueManager> eventManager;
  std::mutex mutex;
  std::unique_ptr<PendingPushes> pending;  // holds the host's callback
  std::optional<std::string> deviceToken;
  bool syncNotification = false;
  std::atomic<bool> registered{false};
};

OLPushManager::OLPushManager() : d_(std::make_unique<Fields>()) {}

bool OLPushManager::isRegistered() const {
  return d_->registered.load();
}

std::shared_ptr<OLPushManager> OLPushManager::make(std::shared_ptr<OLStatus> ostrelState,
                                                   std::shared_ptr<ConnectorBuilder> buildConnector,
                                                   std::weak_ptr<OLQueueManager> eventManager) {
  auto m = std::shared_ptr<OLPushManager>(new OLPushManager());
  m->d_->ostrelState = std::move(ostrelState);
  m->d_->buildConnector = std::move(buildConnector);
  m->d_->eventManager = std::move(eventManager);
  const PlatformRef& platform = m->d_->ostrelState->platformRef();
  m->d_->pending = std::make_unique<PendingPushes>(platform, pendingFolder(*platform));
  std::weak_ptr<OLPushManager> weak = m;
  platform->localNotifications->setDeliveryHandler([weak](const platform::LocalNotification& n) {
    if (auto self = weak.lock()) (void)self->processLocalNotification(n);
  });
  return m;
}

OLPushManager::~OLPushManager() {
  if (d_->syncNotification)
    clearObserver(OLNotification::UserLoginStateChanged, kUserStateObserver);
}

void OLPushManager::registerDevice() {
  std::weak_ptr<OLPushManager> weak = weak_from_this();
  d_->ostrelState->platform().remoteNotifications->registerForRemoteNotifications(
      [weak](Result<std::string> token) {
        auto self = weak.lock();
        if (!self) return;
        if (!token) {
          self->didFailToRegisterForRemoteNotificationsWithError(token.error());
        } else if (auto set = self->setDeviceToken(*token); !set) {
          self->didFailToRegisterForRemoteNotificationsWithError(set.error());
        }
      });
}

std::optional<std::string> OLPushManager::parseToken(const std::string& tokenBytes) {
  if (tokenBytes.empty()) return std::nullopt;
  return hexString(tokenBytes);
}

Result<void> OLPushManager::setDeviceToken(const std::string& tokenBytes) {
  auto token = parseToken(tokenBytes);
  if (!token) {
    return OLError::LocalError(LocalErrorCodes::PushNotificationError, "Token not recognized",
                               std::nullopt, Json{{"deviceToken", hexString(tokenBytes)}});
  }
  {
    std::lock_guard lock(d_->mutex);
    d_->deviceToken = *token;
  }
  logLine(d_->ostrelState->platform(), "Device Token: " + *token);
  registerDeviceToOstrel();
  return {};
}

std::optional<std::string> OLPushManager::deviceToken() const {
  std::lock_guard lock(d_->mutex);
  return d_->deviceToken;
}

void OLPushManager::didFailToRegisterForRemoteNotificationsWithError(const OLError& error) {
  setRegistered(false);
  recordRegistration(false, error.description());
}

void OLPushManager::setRegistrationError(const OLError& error) {
  logLine(d_->ostrelState->platform(), "Push Registration Error sent " + error.description());
  recordRegistration(false, error.description());
}

void OLPushManager::recordRegistration(bool succeeded, const std::optional<std::string>& reason) {
  auto manager = d_->eventManager.lock();
  if (!manager) return;
  // The event takes a reason of limited length: a longer description is cut
  // rather than the failure going unrecorded.
  std::optional<std::string> kept;
  if (reason) kept = truncateGraphemes(*reason, OLPushRegisteredEvent::kMaxReasonLength);
  if (auto queued = manager->generatePushRegistered(succeeded, kept); !queued) {
    logLine(d_->ostrelState->platform(),
            "Error in push registered event " + queued.error().description());
  }
}

void OLPushManager::registerDeviceToOstrel() {
  auto token = deviceToken();
  if (!token) return;
  const auto facts = d_->ostrelState->platform().deviceFacts->snapshot();
  const DeviceInformation& device = d_->ostrelState->deviceInfo();
  Json body = {{"user_id", d_->ostrelState->userState()->currentUserToken()},
               {"token", *token},
               {"os_type", lowercase(device.os.value_or("unknown"))},
               {"app_version", device.appVersion},
               {"app_build", facts.appBuild},
               {"language", device.languageCode},
               {"timezone", device.timezone},
               {"os_version", device.systemVersion},
               {"ostrel_build", Ostrel::buildNumber},
               {"device_type", device.getDeviceTypeStr()},
               {"model", device.model}};
  std::weak_ptr<OLPushManager> weak = weak_from_this();
  d_->buildConnector->buildConnector().send(
      OstrelAPIEndpoint::PushRegistration, body,
      [weak](std::optional<OLError> error, int64_t, std::optional<Json>) {
        auto self = weak.lock();
        if (!self) return;
        if (error) {
          logLine(self->d_->ostrelState->platform(),
                  "Error in device registration " + error->description());
          self->recordRegistration(false, error->description());
          return;
        }
        logLine(self->d_->ostrelState->platform(),
                "Registration of Device Token on Client End went well");
        self->setRegistered(true);
      });
}

void OLPushManager::setRegistered(bool value) {
  if (d_->registered.exchange(value) == value) return;
  if (value) {
    std::lock_guard lock(d_->mutex);
    if (!d_->syncNotification) {
      d_->syncNotification = true;
      std::weak_ptr<OLPushManager> weak = weak_from_this();
      // Every login and logout: the service links the token to the new user.
      addNamedObserver(OLNotification::UserLoginStateChanged, kUserStateObserver,
                       d_->ostrelState->userState().get(), [weak](const Notification&) {
                         auto self = weak.lock();
                         if (!self) return;
                         auto user = self->d_->ostrelState->userState();
                         logLine(self->d_->ostrelState->platform(),
                                 std::string(user->isLogged() ? "Login" : "Logout") +
                                     " has been made. Register to Ostrel with the new userId " +
                                     user->currentUserToken());
                         self->registerDeviceToOstrel();
                       });
    }
  }
  // Only a note in the log: the re-registration itself follows the user's logins.
  d_->ostrelState->platform().scheduler->after(10.0, [platform = d_->ostrelState->platformRef()] {
    logLine(*platform, "Trying again to register token on Ostrel...");
  });
}

OLPushManager& OLPushManager::setPushCallback(PushCallback callback) {
  d_->pending->setCallback(std::move(callback));
  return *this;
}

void OLPushManager::setNotifyLaunchOptions(const LaunchOptions& launchOptions) {
  std::shared_ptr<OLPushBase> push;
  if (launchOptions.remoteNotification) {
    auto built = OLPushBuilder::buildPushObject(*launchOptions.remoteNotification, true);
    if (!built) {
      logLine(d_->ostrelState->platform(),
              "Launch notification not recognized " + built.error().description());
      return;
    }
    push = *built;
  } else if (launchOptions.localNotification) {
    auto built = OLPushBuilder::buildPushObject(*launchOptions.localNotification, true);
    if (!built) return;
    push = *built;
  } else {
    return;
  }
  // The user launched the app from the notification: it was opened.
  if (auto handled = handlePushNotificationReceive(push, true); !handled) {
    logLine(d_->ostrelState->platform(),
            "Launch notification not handled " + handled.error().description());
  }
}

Result<void> OLPushManager::processRemoteNotification(const Json& userInfo, bool appIsBackground) {
  auto push = OLPushBuilder::buildPushObject(userInfo, false);
  if (!push) return push.error();
  return handlePushNotificationReceive(*push, appIsBackground);
}

Result<void> OLPushManager::processLocalNotification(const platform::LocalNotification& n,
                                                     bool appIsBackground) {
  auto push = OLPushBuilder::buildPushObject(n, false);
  if (!push) return push.error();
  return handlePushNotificationReceive(*push, appIsBackground);
}

Result<void> OLPushManager::recordReceived(const OLPushBase& push, PushReceiveAction action) {
  auto manager = d_->eventManager.lock();
  Result<void> queued =
      manager
          ? manager->generatePushReceived(
                push.pushId, PushNotificationEventType(receiveTypeOf(push), action), push.isLocal)
          : OLError::LocalError(LocalErrorCodes::InvalidQueueHandler, "Missing event manager");
  if (!queued)
    logLine(d_->ostrelState->platform(),
            "Error in push received event " + queued.error().description());
  return queued;
}

Result<void> OLPushManager::handlePushNotificationReceive(std::shared_ptr<OLPushBase> push,
                                                          bool appIsBackground) {
  if (!push) {
    return OLError::LocalError(LocalErrorCodes::PushNotificationError, "Missing push");
  }
  const auto action = appIsBackground ? PushReceiveAction::opened : PushReceiveAction::notified;
  // The push is the user's whatever becomes of its analytics: a received event
  // that cannot be recorded is reported, and the push handed over all the same.
  auto recorded = recordReceived(*push, action);
  if (auto url = std::dynamic_pointer_cast<OLUrlPush>(push)) {
    std::lock_guard lock(d_->mutex);
    d_->ostrelState->urlPush = url;
  }
  notify(OLNotification::PushNotificationReceived, this, Json{{"push_id", push->pushId}}, push);
  d_->pending->add(std::move(push));
  return recorded;
}

Result<void> OLPushManager::showInterstitialContent(void* onViewController,
                                                    void* navigationDelegate) {
  std::shared_ptr<OLUrlPush> push;
  {
    std::lock_guard lock(d_->mutex);
    push = d_->ostrelState->urlPush;
  }
  if (!push) {
    return OLError::LocalError(LocalErrorCodes::PushNotificationError, "No URL push to show");
  }
  auto shown =
      d_->ostrelState->platform().webView->show(push->url, onViewController, navigationDelegate);
  if (!shown) return shown.error();
  {
    std::lock_guard lock(d_->mutex);
    if (d_->ostrelState->urlPush == push) d_->ostrelState->urlPush.reset();
  }
  (void)recordReceived(*push, PushReceiveAction::urlShown);
  return {};
}

OLPushBuilder OLPushManager::getPushBuilder() {
  std::weak_ptr<OLPushManager> weak = weak_from_this();
  return OLPushBuilder(d_->ostrelState->platformRef(), [weak](const OLPushBase& push) {
    if (auto self = weak.lock()) (void)self->recordReceived(push, PushReceiveAction::scheduled);
  });
}

void OLPushManager::terminationActions() {
  std::shared_ptr<OLUrlPush> unseen;
  {
    std::lock_guard lock(d_->mutex);
    unseen = d_->ostrelState->urlPush;
  }
  // A URL push whose page was never shown comes back as a reminder a minute later.
  auto builder = getPushBuilder();
  builder.setDate(d_->ostrelState->platform().clock->now() + 60.0);
  if (unseen) {
    builder.setBody(unseen->body).setUrl(unseen->url);
    if (unseen->badge) builder.setBadgeCounter(*unseen->badge);
    if (unseen->sound) builder.setSound(*unseen->sound);
  }
  (void)builder.scheduleLocalUrlPush();
  clearObserver(OLNotification::UserLoginStateChanged, kUserStateObserver);
  std::lock_guard lock(d_->mutex);
  d_->syncNotification = false;
}

}  // namespace ostrel
