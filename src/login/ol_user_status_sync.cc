// Re-synchronising the user's state with the service through an autologin.
#include <atomic>

#include "login/ol_auto_login_flow.h"
#include "login/ol_user_status.h"
#include "ostrel/ol_login_builder.h"
#include "ostrel/ol_notification.h"
#include "status/ol_status.h"

namespace ostrel {

void OLUserStatus::attachToLoginNotification(const std::string& observerName,
                                             const std::shared_ptr<OLStatus>& status,
                                             const std::shared_ptr<OLLoginBuilder>& builder,
                                             ErrorCallback callback) {
  // Answers once the running login has finished: a login that changes the
  // user's state posts the notification; one that ends otherwise (a failure,
  // a flow that logs nobody in) only frees the slot, and the sync then runs
  // its own autologin. Whichever comes first answers; the observer goes either way.
  auto fired = std::make_shared<std::atomic<bool>>(false);
  addNamedObserver(OLNotification::UserLoginStateChanged, observerName, nullptr,
                   [observerName, callback, fired](const Notification&) {
                     if (fired->exchange(true)) return;
                     clearObserver(OLNotification::UserLoginStateChanged, observerName);
                     callback(std::nullopt);
                   });
  std::weak_ptr<OLUserStatus> weak = weak_from_this();
  std::weak_ptr<OLStatus> weakStatus = status;
  status->whenRunningFlowFreed([weak, weakStatus, builder, observerName, callback, fired] {
    if (fired->exchange(true)) return;
    clearObserver(OLNotification::UserLoginStateChanged, observerName);
    auto self = weak.lock();
    auto s = weakStatus.lock();
    if (!self || !s) {
      callback(OLError::LocalError(LocalErrorCodes::OstrelNotInitialized,
                                   "Ostrel not initialized. Missing internal status"));
      return;
    }
    self->syncUserState(s, builder, callback);
  });
}

void OLUserStatus::syncUserState(const std::shared_ptr<OLStatus>& status,
                                 const std::shared_ptr<OLLoginBuilder>& builder,
                                 ErrorCallback callback) {
  const std::string token = currentUserToken();
  if (status->hasRunningFlow()) {
    attachToLoginNotification("io.ostrel.syncuserstate.waitForLogin", status, builder,
                              std::move(callback));
    return;
  }
  // An anonymous or custom user has nothing the service could renew.
  if (token == anonymousToken_ || token.starts_with("C_")) {
    callback(std::nullopt);
    return;
  }
  std::weak_ptr<OLUserStatus> weak = weak_from_this();
  std::weak_ptr<OLStatus> weakStatus = status;
  // The builder keeps this callback: it holds the builder weakly.
  std::weak_ptr<OLLoginBuilder> weakBuilder = builder;
  PlatformRef platform = platform_;
  builder->setOnFlowCompleteCallback(
      [weak, weakStatus, weakBuilder, callback, platform](std::optional<OLError> error) {
        if (error) {
          logLine(*platform,
                  "Sunc User State Autologin flow finished with error " + error->description());
          auto self = weak.lock();
          auto s = weakStatus.lock();
          auto b = weakBuilder.lock();
          if (self && s && b &&
              error->is(LocalErrorCodes::LoginBuilderError, "Another Flow is in progress")) {
            self->attachToLoginNotification("io.ostrel.waitForLogin", s, b, callback);
            return;
          }
        }
        callback(error);
      });
  auto flow = builder->getAutoLoginFlow();
  if (!flow) {
    if (flow.error().is(LocalErrorCodes::LoginBuilderError, "Another Flow is in progress")) {
      attachToLoginNotification("io.ostrel.waitForLogin", status, builder, std::move(callback));
      return;
    }
    callback(OLError::LocalError(
        LocalErrorCodes::SyncUserStateError, "Fail in sync User state", std::nullopt,
        Json{{"userToken", token}, {"error", flow.error().description()}}));
    return;
  }
  (*flow)->startLoginFlow();
}

}  // namespace ostrel
