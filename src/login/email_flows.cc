#include "login/email_flows.h"

#include "login/ol_user_status.h"
#include "login/service_error_mapping.h"
#include "ostrel/ol_simple_object.h"
#include "status/ol_status.h"

namespace ostrel {

OLEmailPasswordLoginFlowImpl::OLEmailPasswordLoginFlowImpl(std::shared_ptr<OLStatus> state,
                                                           OLConnector connector, std::string email,
                                                           std::optional<std::string> password)
    : OLLoginFlowBase(std::move(state), std::move(connector)),
      _email(std::move(email)),
      _password(std::move(password)) {}

void OLEmailPasswordLoginFlowImpl::startLoginFlow() {
  if (auto ready = checkStartRequirements(); !ready) return failStart(ready.error());
  Json body = {{"email", _email}};
  if (_password) body["password"] = *_password;
  runRequest(
      OstrelAPIEndpoint::EmailLogin, std::move(body),
      {{OstrelErrorCodes::WRONG_EMAIL_PASSWORD, LocalErrorCodes::EMAILLoginWrongPasswordError},
       {OstrelErrorCodes::MANDATORY_CONFIRM,
        LocalErrorCodes::EMAILSignupLoginMandatoryConfirmError}},
      LocalErrorCodes::EMAILLoginError, /*logsIn=*/true, /*holdsSlot=*/true);
}

OLEmailSignupLoginFlowImpl::OLEmailSignupLoginFlowImpl(
    std::shared_ptr<OLStatus> state, OLConnector connector, std::string email,
    std::optional<std::string> password, std::shared_ptr<OLSimpleObject> userProperties)
    : OLLoginFlowBase(std::move(state), std::move(connector)),
      _email(std::move(email)),
      _password(std::move(password)),
      _userProperties(std::move(userProperties)) {}

void OLEmailSignupLoginFlowImpl::startLoginFlow() {
  if (auto ready = checkStartRequirements(); !ready) return failStart(ready.error());
  Json body = {{"email", _email}};
  if (_password) body["password"] = *_password;
  body["user_properties"] = _userProperties ? _userProperties->getDictionary() : Json::object();
  runRequest(
      OstrelAPIEndpoint::EmailSignup, std::move(body),
      {{OstrelErrorCodes::IDENTITY_ALREADY_USED, LocalErrorCodes::EMAILSignupLoginIdentityError},
       {OstrelErrorCodes::MANDATORY_CONFIRM,
        LocalErrorCodes::EMAILSignupLoginMandatoryConfirmError}},
      LocalErrorCodes::EMAILLoginError, /*logsIn=*/true, /*holdsSlot=*/true);
}

OLEmailForgotFlowImpl::OLEmailForgotFlowImpl(std::shared_ptr<OLStatus> state, OLConnector connector,
                                             std::string email)
    : OLLoginFlowBase(std::move(state), std::move(connector)), _email(std::move(email)) {}

Result<void> OLEmailForgotFlowImpl::checkStartRequirements() {
  const std::string token = user().currentUserToken();
  if (token == user().anonymousToken()) return {};
  freeSlot();  // only affects a slot this flow would hold
  return OLError::LocalError(LocalErrorCodes::LoginBuilderError, "User Already Logged",
                             std::nullopt, Json{{"userToken", token}});
}

void OLEmailForgotFlowImpl::startForgotFlow() {
  if (auto ready = checkStartRequirements(); !ready) return failStart(ready.error());
  runRequest(OstrelAPIEndpoint::EmailForgot, Json{{"email", _email}},
             {{OstrelErrorCodes::WRONG_EMAIL_PASSWORD, LocalErrorCodes::EMAILForgotWrongEmailError},
              {OstrelErrorCodes::WRONG_IDENTITY, LocalErrorCodes::EMAILForgotWrongEmailError}},
             LocalErrorCodes::EMAILForgotError, /*logsIn=*/false, /*holdsSlot=*/false);
}

OLEmailResendFlowImpl::OLEmailResendFlowImpl(std::shared_ptr<OLStatus> state, OLConnector connector,
                                             std::string email)
    : OLLoginFlowBase(std::move(state), std::move(connector)), _email(std::move(email)) {}

void OLEmailResendFlowImpl::startLoginFlow() {
  if (auto ready = checkStartRequirements(); !ready) return failStart(ready.error());
  runRequest(OstrelAPIEndpoint::EmailResend, Json{{"email", _email}}, {},
             LocalErrorCodes::EMAILResendError, /*logsIn=*/false, /*holdsSlot=*/true);
}

}  // namespace ostrel
