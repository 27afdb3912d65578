#pragma once
// How the login flows report the service's refusals: each flow turns a service
// error it knows by name into the local code that names the reaction, and any
// other failure (another service error, a transport failure) into its own
// generic code. Nothing of the answer is lost: the error answers the reply's
// status (`statusCode()`), and its extra map carries the service's code, the
// status, the service's extra and the reply body's text ("code", "statusCode",
// "extra", "body"). Nothing of the request travels with it (no password, no PIN).
//
//   flow               service code             local code
//   e-mail login       WRONG_EMAIL_PASSWORD     EMAILLoginWrongPasswordError
//                      MANDATORY_CONFIRM        EMAILSignupLoginMandatoryConfirmError
//                      (other)                  EMAILLoginError
//   e-mail sign-up     IDENTITY_ALREADY_USED    EMAILSignupLoginIdentityError
//                      MANDATORY_CONFIRM        EMAILSignupLoginMandatoryConfirmError
//                      (other)                  EMAILLoginError
//   e-mail forgot      WRONG_EMAIL_PASSWORD,    EMAILForgotWrongEmailError
//                      WRONG_IDENTITY
//                      (other)                  EMAILForgotError
//   e-mail resend      (any)                    EMAILResendError
//   MSISDN PIN login   WRONG_PIN                MSISDNLoginWrongPINError
//                      (other)                  MSISDNLoginError
//   MSISDN PIN forgot  MAX_PIN_LIMIT_REACHED    MSISDNForgotMaxPINReachedError
//                      (other)                  MSISDNForgotError
//   MSISDN recognition (any but the domain      MSISDNUserRecognitionFailed
//                       warning)
//   add e-mail identity WRONG_IDENTITY,         AddEmailIdentityFlowError
//                      IDENTITY_ALREADY_USED, (other)
// Local errors the library raised before the request (the body checks) pass unchanged.
#include <optional>
#include <utility>
#include <vector>

#include "ostrel/json.h"
#include "ostrel/ol_error.h"

namespace ostrel {

struct ServiceCodeMapping {
  OstrelErrorCodes service;
  LocalErrorCodes local;
};

// `reply`: the decoded reply the error came with, if any.
OLError mapServiceError(const OLError& error, const std::vector<ServiceCodeMapping>& known,
                        LocalErrorCodes fallback, const std::optional<Json>& reply);

}  // namespace ostrel
