#pragma once
// The kinds that travel with analytics events, on the wire and on disk.
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "ostrel/export.h"

namespace ostrel {

// The public event the facade asks the queue manager to build.
enum class _EventType {
  Custom,
  TimerStart,
  TimerStop,
  FlowBegin,
  FlowStep,
  FlowSucceed,
  FlowCancel,
  FlowFail
};
class OSTREL_API EventType {
 public:
  explicit EventType(_EventType type) : type(type) {}
  _EventType type;
  // The wire "event_type" of the event built for it.
  std::string_view wireType() const;
  bool operator==(const EventType&) const = default;
};

enum class LoginType {
  autologin,
  email,
  emailSignup,
  emailConfirm,
  google,
  custom,
  msisdnPin,
  msisdnUR,
  external,
  paymentReceipt,
  mfp,
  withUO20credentials,
  unknown,
};
OSTREL_API std::string_view rawValue(LoginType type);
OSTREL_API std::optional<LoginType> loginTypeFromRaw(std::string_view raw);

enum class LogoutType { explicit_, refresh, invalid, error, delete_, unknown };
OSTREL_API std::string_view rawValue(LogoutType type);
OSTREL_API std::optional<LogoutType> logoutTypeFromRaw(std::string_view raw);

// A login or a logout kind.
class OSTREL_API IdentificationType {
 public:
  static IdentificationType login(LoginType t) { return IdentificationType(t); }
  static IdentificationType logout(LogoutType t) { return IdentificationType(t); }
  std::variant<LoginType, LogoutType> type;
  bool isLogin() const { return std::holds_alternative<LoginType>(type); }
  // "login type: email-signup" / "logout type: refresh"
  std::string description() const;

 private:
  explicit IdentificationType(LoginType t) : type(t) {}
  explicit IdentificationType(LogoutType t) : type(t) {}
};

enum class FlowStatus { Begun, Step, Succeeded, Canceled, Failed };
OSTREL_API std::string_view rawValue(FlowStatus status);
OSTREL_API std::optional<FlowStatus> flowStatusFromRaw(std::string_view raw);
inline bool isFinal(FlowStatus s) {
  return s != FlowStatus::Begun && s != FlowStatus::Step;
}

enum class TimerStatus { Started, Stop };
OSTREL_API std::string_view rawValue(TimerStatus status);
OSTREL_API std::optional<TimerStatus> timerStatusFromRaw(std::string_view raw);

enum class _RankingScope { consumption, social, editorial, unknown };
class OSTREL_API RankingScope {
 public:
  explicit RankingScope(_RankingScope scope) : scope(scope) {}
  // Accepts "consumption", "social", "editorial" and "unknown".
  static std::optional<RankingScope> fromRaw(std::string_view raw);
  std::string_view rawValue() const;
  _RankingScope scope;
};

enum class AttachType { master, peer, unknown };
OSTREL_API std::string_view rawValue(AttachType type);
OSTREL_API std::optional<AttachType> attachTypeFromRaw(std::string_view raw);

}  // namespace ostrel
