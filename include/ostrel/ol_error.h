#pragma once
// OLError: the one error type of the library. Either an error answered by the
// service (OstrelError) or one the library raised itself (LocalError).
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "ostrel/export.h"
#include "ostrel/json.h"

namespace ostrel {

// Raw text of every case is exactly its name.
enum class LocalErrorCodes {
  OstrelNotInitialized,
  OstrelInitializationError,
  SimpleObjectCreationError,
  SimpleObjectSerializationError,
  EventCreationError,
  EventFlowInconsistance,
  EventTimedInconsistance,
  EventAnalyticError,
  InvalidQueueHandler,
  StorageError,
  InvalidFunctionCalled,
  InvalidEvent,
  AnalyticError,
  ConnectionInitError,
  ConnectionError,
  ConnectionResponseError,
  ConnectionValidationError,
  ConnectionDomainWarning,
  QueueError,
  LoginBuilderError,
  LoginFlowUnknownError,
  InvalidLoginFlowResponse,
  InvalidForgotFlowResponse,
  OAuthError,
  UserMetaInfoSerializationError,
  UserMetaInfoError,
  AutologinError,
  AutologinServerError,
  AutologinTokenExpired,
  AutologinTokenInvalid,
  AutologinInternalError,
  LogoutError,
  NotificationError,
  SyncUserStateError,
  UserDeleteError,
  PushNotificationError,
  PushNotificationDeviceRegistrationError,
  MSISDNLoginError,
  MSISDNLoginWrongPINError,
  MSISDNError,
  MSISDNForgotError,
  MSISDNForgotMaxPINReachedError,
  MSISDNUserRecognitionFailed,
  EMAILLoginWrongPasswordError,
  EMAILLoginError,
  EMAILForgotWrongEmailError,
  EMAILForgotError,
  EMAILResendError,
  EMAILSignupLoginMandatoryConfirmError,
  EMAILSignupLoginIdentityError,
  MFPLoginError,
  MFPLoginWrongFingerprint,
  UO2CredentialsLoginError,
  IdentityBuilderError,
  IdentityFlowUnknownError,
  IdentityFlowError,
  AddEmailIdentityFlowError,
  PaymentSerializationError,
  InvalidUserToken,
  PaymentItemAlreadyPaid,
  PaymentError,
};
inline constexpr int kLocalErrorCodesCount = 61;

OSTREL_API std::string_view rawValue(LocalErrorCodes code);
OSTREL_API std::optional<LocalErrorCodes> localErrorCodeFromRaw(std::string_view raw);

// The service's error codes that the library reacts to by name.
enum class OstrelErrorCodes {
  WRONG_EMAIL_PASSWORD,
  WRONG_PIN,
  ITEM_ALREADY_PAID,
  MANDATORY_CONFIRM,
  IDENTITY_ALREADY_USED,
  WRONG_IDENTITY,
  MAX_PIN_LIMIT_REACHED,
  OFFER_PAYMENT_USER_MISMATCH,
};
inline constexpr int kOstrelErrorCodesCount = 8;

OSTREL_API std::string_view rawValue(OstrelErrorCodes code);
OSTREL_API std::optional<OstrelErrorCodes> ostrelErrorCodeFromRaw(std::string_view raw);

inline bool operator==(OstrelErrorCodes code, std::string_view text) {
  return rawValue(code) == text;
}
inline bool operator==(std::string_view text, OstrelErrorCodes code) {
  return rawValue(code) == text;
}
inline bool operator!=(OstrelErrorCodes code, std::string_view text) {
  return !(code == text);
}
inline bool operator!=(std::string_view text, OstrelErrorCodes code) {
  return !(code == text);
}

// An error of the platform underneath (transport, file system) carried inside a LocalError.
struct OSTREL_API PlatformError {
  std::string domain;
  int64_t code = 0;
  std::string localizedDescription;
};

class OSTREL_API OLError {
 public:
  enum class Kind { OstrelError = 0, LocalError = 1 };

  static OLError OstrelError(std::string code, std::string message, int64_t statusCode,
                             std::optional<Json> extra = std::nullopt);
  // `statusCode`: the HTTP status of the reply the library turned into this
  // error (a login flow's refusal keeps the service's status this way).
  static OLError LocalError(LocalErrorCodes code, std::string message,
                            std::optional<PlatformError> error = std::nullopt,
                            std::optional<Json> extra = std::nullopt,
                            std::optional<int64_t> statusCode = std::nullopt);

  Kind kind() const { return kind_; }
  bool isLocal() const { return kind_ == Kind::LocalError; }
  // The service's code text, or the raw text of the local code.
  const std::string& code() const { return code_; }
  // The local code; absent for a service error.
  std::optional<LocalErrorCodes> localCode() const;
  const std::string& message() const { return message_; }
  // The HTTP status of a service error, or of the reply a local error was
  // made from; absent for a local error that answers no reply.
  std::optional<int64_t> statusCode() const;
  // Context information; null when absent. Shared between copies.
  const Json* extra() const { return extra_.get(); }
  const PlatformError* underlyingError() const { return error_.get(); }

  // The bridged platform error: domain "Ostrel.OLError", code = case ordinal.
  static constexpr std::string_view domain() { return "Ostrel.OLError"; }
  int ordinal() const { return static_cast<int>(kind_); }

  std::string description() const;

  // True when this is a LocalError with this code (and message, when given).
  bool is(LocalErrorCodes code) const;
  bool is(LocalErrorCodes code, std::string_view message) const;

 private:
  OLError() = default;
  Kind kind_ = Kind::LocalError;
  std::string code_;
  LocalErrorCodes local_ = LocalErrorCodes::OstrelNotInitialized;
  std::string message_;
  std::optional<int64_t> status_;
  std::shared_ptr<const Json> extra_;
  std::shared_ptr<const PlatformError> error_;
};

// The platform's textual form of an optional value: "nil", or "Optional(" + form + ")".
// Dictionaries read ["key": value, ...], arrays [a, b], texts are double-quoted.
OSTREL_API std::string describeValue(const Json& value);
OSTREL_API std::string describeOptional(const Json* value);
OSTREL_API std::string describeOptional(const std::optional<std::string>& text);

}  // namespace ostrel
