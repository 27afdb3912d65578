// Re-synchronising the user's state with the service through an autologin.
#include <atomic>

#include "core/ol_status.h"
#include "login/ol_auto_login_flow.h"
#include "login/ol_user_status.h"
#include "ostrel/ol_login_builder.h"
#include "ostrel/ol_notification.h"
#include "platform/runtime.h"

namespace ostrel {
namespace {

// Answers once the running login has finished (the next user-state change).
void attachToLoginNotification(const std::string& observerName, ErrorCallback callback) {
  auto fired = std::make_shared<std::atomic<bool>>(false);
  addNamedObserver(OLNotification::UserLoginStateChanged, observerName, nullptr,
                   [observerName, callback, fired](const Notification&) {
                     if (fired->exchange(true)) return;
                     clearObserver(OLNotification::UserLoginStateChanged, observerName);
                     callback(std::nullopt);
                   });
}

}  // namespace

void OLUserStatus::syncUserState(const std::shared_ptr<OLStatus>& status,
                                 const std::shared_ptr<OLLoginBuilder>& builder,
                                 ErrorCallback callback) {
  const std::string token = currentUserToken();
  if (status->hasRunningFlow()) {
    attachToLoginNotification("io.ostrel.syncuserstate.waitForLogin", std::move(callback));
    return;
  }
  // An anonymous or custom user has nothing the service could renew.
  if (token == anonymousToken_ || token.starts_with("C_")) {
    callback(std::nullopt);
    return;
  }
  builder->setOnFlowCompleteCallback([callback](std::optional<OLError> error) {
    if (error) {
      logLine("Sunc User State Autologin flow finished with error " + error->description());
      if (error->is(LocalErrorCodes::LoginBuilderError, "Another Flow is in progress")) {
        attachToLoginNotification("io.ostrel.waitForLogin", callback);
        return;
      }
    }
    callback(error);
  });
  auto flow = builder->getAutoLoginFlow();
  if (!flow) {
    if (flow.error().is(LocalErrorCodes::LoginBuilderError, "Another Flow is in progress")) {
      attachToLoginNotification("io.ostrel.waitForLogin", std::move(callback));
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
