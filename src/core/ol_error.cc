#include "ostrel/ol_error.h"

#include <array>
#include <cmath>
#include <cstdio>

namespace ostrel {
namespace {

constexpr std::array<std::string_view, kLocalErrorCodesCount> kLocalNames = {
    "OstrelNotInitialized",
    "OstrelInitializationError",
    "SimpleObjectCreationError",
    "SimpleObjectSerializationError",
    "EventCreationError",
    "EventFlowInconsistance",
    "EventTimedInconsistance",
    "EventAnalyticError",
    "InvalidQueueHandler",
    "StorageError",
    "InvalidFunctionCalled",
    "InvalidEvent",
    "AnalyticError",
    "ConnectionInitError",
    "ConnectionError",
    "ConnectionResponseError",
    "ConnectionValidationError",
    "ConnectionDomainWarning",
    "QueueError",
    "LoginBuilderError",
    "LoginFlowUnknownError",
    "InvalidLoginFlowResponse",
    "InvalidForgotFlowResponse",
    "OAuthError",
    "UserMetaInfoSerializationError",
    "UserMetaInfoError",
    "AutologinError",
    "AutologinServerError",
    "AutologinTokenExpired",
    "AutologinTokenInvalid",
    "AutologinInternalError",
    "LogoutError",
    "NotificationError",
    "SyncUserStateError",
    "UserDeleteError",
    "PushNotificationError",
    "PushNotificationDeviceRegistrationError",
    "MSISDNLoginError",
    "MSISDNLoginWrongPINError",
    "MSISDNError",
    "MSISDNForgotError",
    "MSISDNForgotMaxPINReachedError",
    "MSISDNUserRecognitionFailed",
    "EMAILLoginWrongPasswordError",
    "EMAILLoginError",
    "EMAILForgotWrongEmailError",
    "EMAILForgotError",
    "EMAILResendError",
    "EMAILSignupLoginMandatoryConfirmError",
    "EMAILSignupLoginIdentityError",
    "MFPLoginError",
    "MFPLoginWrongFingerprint",
    "UO2CredentialsLoginError",
    "IdentityBuilderError",
    "IdentityFlowUnknownError",
    "IdentityFlowError",
    "AddEmailIdentityFlowError",
    "PaymentSerializationError",
    "InvalidUserToken",
    "PaymentItemAlreadyPaid",
    "PaymentError",
};

constexpr std::array<std::string_view, kOstrelErrorCodesCount> kServiceNames = {
    "WRONG_EMAIL_PASSWORD",  "WRONG_PIN",
    "ITEM_ALREADY_PAID",     "MANDATORY_CONFIRM",
    "IDENTITY_ALREADY_USED", "WRONG_IDENTITY",
    "MAX_PIN_LIMIT_REACHED", "OFFER_PAYMENT_USER_MISMATCH",
};

std::string describeNumber(const Json& value) {
  if (value.is_number_integer()) return value.dump();
  double d = value.get<double>();
  if (std::isfinite(d) && d == std::floor(d) && std::fabs(d) < 1e15) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.1f", d);
    return buf;
  }
  return value.dump();
}

}  // namespace

std::string_view rawValue(LocalErrorCodes code) {
  return kLocalNames[static_cast<size_t>(code)];
}

std::optional<LocalErrorCodes> localErrorCodeFromRaw(std::string_view raw) {
  for (size_t i = 0; i < kLocalNames.size(); ++i) {
    if (kLocalNames[i] == raw) return static_cast<LocalErrorCodes>(i);
  }
  return std::nullopt;
}

std::string_view rawValue(OstrelErrorCodes code) {
  return kServiceNames[static_cast<size_t>(code)];
}

std::optional<OstrelErrorCodes> ostrelErrorCodeFromRaw(std::string_view raw) {
  for (size_t i = 0; i < kServiceNames.size(); ++i) {
    if (kServiceNames[i] == raw) return static_cast<OstrelErrorCodes>(i);
  }
  return std::nullopt;
}

OLError OLError::OstrelError(std::string code, std::string message, int64_t statusCode,
                             std::optional<Json> extra) {
  OLError e;
  e.kind_ = Kind::OstrelError;
  e.code_ = std::move(code);
  e.message_ = std::move(message);
  e.status_ = statusCode;
  if (extra) e.extra_ = std::make_shared<const Json>(std::move(*extra));
  return e;
}

OLError OLError::LocalError(LocalErrorCodes code, std::string message,
                            std::optional<PlatformError> error, std::optional<Json> extra,
                            std::optional<int64_t> statusCode) {
  OLError e;
  e.status_ = statusCode;
  e.kind_ = Kind::LocalError;
  e.local_ = code;
  e.code_ = std::string(rawValue(code));
  e.message_ = std::move(message);
  if (error) e.error_ = std::make_shared<const PlatformError>(std::move(*error));
  if (extra) e.extra_ = std::make_shared<const Json>(std::move(*extra));
  return e;
}

std::optional<LocalErrorCodes> OLError::localCode() const {
  if (kind_ != Kind::LocalError) return std::nullopt;
  return local_;
}

std::optional<int64_t> OLError::statusCode() const {
  return status_;
}

bool OLError::is(LocalErrorCodes code) const {
  return kind_ == Kind::LocalError && local_ == code;
}

bool OLError::is(LocalErrorCodes code, std::string_view message) const {
  return is(code) && message_ == message;
}

std::string OLError::description() const {
  if (kind_ == Kind::OstrelError) {
    // The service form deliberately has no closing parenthesis.
    return "Ostrel Error [" + code_ + "/" + std::to_string(status_.value_or(0)) + "]: " + message_ +
           " (extra: " + describeOptional(extra_.get());
  }
  std::optional<std::string> underlying;
  if (error_) underlying = error_->localizedDescription;
  return code_ + ": " + message_ + " (error: " + describeOptional(underlying) +
         ") (extra: " + describeOptional(extra_.get()) + ")";
}

std::string describeValue(const Json& value) {
  switch (value.type()) {
    case Json::value_t::null:
      return "<null>";
    case Json::value_t::boolean:
      return value.get<bool>() ? "true" : "false";
    case Json::value_t::string:
      return dumpJson(value);
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
    case Json::value_t::number_float:
      return describeNumber(value);
    case Json::value_t::array: {
      std::string out = "[";
      bool first = true;
      for (const auto& item : value) {
        if (!first) out += ", ";
        first = false;
        out += describeValue(item);
      }
      return out + "]";
    }
    case Json::value_t::object: {
      if (value.empty()) return "[:]";
      std::string out = "[";
      bool first = true;
      for (const auto& [key, item] : value.items()) {
        if (!first) out += ", ";
        first = false;
        out += dumpJson(Json(key)) + ": " + describeValue(item);
      }
      return out + "]";
    }
    case Json::value_t::binary:
      return std::to_string(value.get_binary().size()) + " bytes";
    case Json::value_t::discarded:
      break;
  }
  return "nil";
}

std::string describeOptional(const Json* value) {
  if (value == nullptr) return "nil";
  return "Optional(" + describeValue(*value) + ")";
}

std::string describeOptional(const std::optional<std::string>& text) {
  if (!text) return "nil";
  return "Optional(" + dumpJson(Json(*text)) + ")";
}

}  // namespace ostrel
