#include "login/ol_auto_login_flow.h"

#include "login/ol_user_status.h"
#include "status/ol_status.h"

namespace ostrel {

Result<void> OLAutoLoginFlowImpl::checkStartRequirements() {
  if (!_ostrelState->setCurrentRunningFlow(shared_from_this())) {
    return OLError::LocalError(LocalErrorCodes::LoginBuilderError, "Another Flow is in progress",
                               std::nullopt, Json::object());
  }
  const std::string token = user().currentUserToken();
  if (token != user().anonymousToken() && !token.starts_with("C_")) return {};
  freeSlot();
  return OLError::LocalError(LocalErrorCodes::LoginBuilderError,
                             "Current credentials do not meet prerequisites", std::nullopt,
                             Json{{"userToken", token}});
}

void OLAutoLoginFlowImpl::startLoginFlow() {
  if (auto ready = checkStartRequirements(); !ready) {
    failStart(ready.error());
    return;
  }
  // The renewable token goes first, unlike the general current-token order.
  std::string token = user().anonymousToken();
  if (auto autologin = user().autologinToken()) {
    token = *autologin;
  } else if (auto service = user().ostrelToken()) {
    token = *service;
  }
  auto self = std::static_pointer_cast<OLAutoLoginFlowImpl>(shared_from_this());
  post(
      OstrelAPIEndpoint::RefreshToken, Json{{bhandleKey, token}},
      [self](std::optional<OLError> error, int64_t status, std::optional<Json> reply,
             const Json& input) {
        // The slot is freed whatever the outcome, before the completion runs
        // (after the renewed login is recorded, when there is one).
        if (error) return self->endHoldingSlot(std::move(error), std::nullopt);
        if (status < 200 || status > 299) {
          return self->endHoldingSlot(
              replyError(std::nullopt, LocalErrorCodes::AutologinServerError, input, status, reply),
              std::nullopt);
        }
        self->parseUserStatus(reply);
      });
}

}  // namespace ostrel
