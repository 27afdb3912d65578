#include "ostrel/ol_identity_manager.h"

#include "core/answer_off_caller.h"
#include "login/add_email_identity_flow.h"
#include "login/ol_user_status.h"
#include "login/service_error_mapping.h"
#include "status/ol_status.h"
#include "transport/connector_builder.h"

namespace ostrel {
namespace {
OLError identityBuilderError(std::string message, std::optional<Json> extra = std::nullopt) {
  return OLError::LocalError(LocalErrorCodes::IdentityBuilderError, std::move(message),
                             std::nullopt, std::move(extra));
}
}  // namespace

Result<void> OLAddEmailIdentityFlowImpl::checkStartRequirements() {
  if (!_ostrelState->setCurrentRunningFlow(shared_from_this())) {
    return OLError::LocalError(LocalErrorCodes::IdentityFlowError, "Another Flow is in progress");
  }
  const std::string token = user().currentUserToken();
  if (token != user().anonymousToken() && !token.starts_with("C_")) return {};
  freeSlot();
  return OLError::LocalError(LocalErrorCodes::IdentityFlowError, "User Not Logged", std::nullopt,
                             Json{{"userToken", token}});
}

void OLAddEmailIdentityFlowImpl::startLoginFlow() {
  if (auto ready = checkStartRequirements(); !ready) return failStart(ready.error());
  runRequest(
      OstrelAPIEndpoint::EmailIdentify,
      Json{{"user_id", user().currentUserToken()}, {"email", _email}, {"password", _password}},
      {{OstrelErrorCodes::WRONG_IDENTITY, LocalErrorCodes::AddEmailIdentityFlowError},
       {OstrelErrorCodes::IDENTITY_ALREADY_USED, LocalErrorCodes::AddEmailIdentityFlowError}},
      LocalErrorCodes::AddEmailIdentityFlowError, /*logsIn=*/false, /*holdsSlot=*/true);
}

OLIdentityBuilder& OLIdentityBuilder::setEmail(std::string email) {
  email_ = std::move(email);
  return *this;
}
OLIdentityBuilder& OLIdentityBuilder::setPassword(std::string password) {
  password_ = std::move(password);
  return *this;
}
OLIdentityBuilder& OLIdentityBuilder::setOnFlowCompleteCallback(ErrorCallback callback) {
  // A flow refused at its start ends inside startLoginFlow.
  callback_ = answeredOnNetworkThread(state_->platformRef(), std::move(callback));
  return *this;
}

Result<std::shared_ptr<OLAddEmailIdentityFlow>> OLIdentityBuilder::getAddEmailIdentityFlow() {
  if (state_->hasRunningFlow()) return identityBuilderError("Another Flow is in progress");
  auto& user = *state_->userState();
  const std::string token = user.currentUserToken();
  if (token == user.anonymousToken()) {
    return identityBuilderError("User Not Logged", Json{{"userToken", token}});
  }
  if (!email_) return identityBuilderError("Missing EMAIL credential");
  if (email_->empty())
    return identityBuilderError("Wrong EMAIL credential", Json{{"email", *email_}});
  if (!password_) return identityBuilderError("Missing PASSWORD credential");
  auto flow = std::make_shared<OLAddEmailIdentityFlowImpl>(state_, connectors_->buildConnector(),
                                                           *email_, *password_);
  auto callback = callback_;
  flow->setInternalCompletionCallback(
      [callback](std::optional<OLError> e, std::optional<std::string>) {
        if (callback) callback(std::move(e));
      });
  return {std::move(flow)};
}

}  // namespace ostrel
