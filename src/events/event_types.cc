#include "ostrel/event_types.h"

#include <array>

namespace ostrel {
namespace {

template <class E, std::size_t N>
std::optional<E> fromRaw(const std::array<std::string_view, N>& names, std::string_view raw) {
  for (std::size_t i = 0; i < N; ++i) {
    if (names[i] == raw) return static_cast<E>(i);
  }
  return std::nullopt;
}

constexpr std::array<std::string_view, 8> kEventWireTypes = {
    "custom event", "timer start",    "timer stop",    "flow start",
    "flow step",    "flow succeeded", "flow canceled", "flow failed"};
constexpr std::array<std::string_view, 13> kLoginTypes = {
    "autologin",  "email",     "email-signup", "email-confirm",   "google",    "CUSTOM",
    "msisdn-pin", "msisdn-ur", "external",     "payment-receipt", "mfp-login", "uo20-credentials",
    "unknown"};
constexpr std::array<std::string_view, 6> kLogoutTypes = {"explicit", "refresh", "invalid",
                                                          "error",    "delete",  "unknown"};
constexpr std::array<std::string_view, 5> kFlowStatuses = {
    "flow start", "flow step", "flow succeeded", "flow canceled", "flow failed"};
constexpr std::array<std::string_view, 2> kTimerStatuses = {"timer start", "timer stop"};
constexpr std::array<std::string_view, 4> kScopes = {"consumption", "social", "editorial",
                                                     "unknown"};
constexpr std::array<std::string_view, 3> kAttachTypes = {"master", "peer", "unknown"};

}  // namespace

std::string_view EventType::wireType() const {
  return kEventWireTypes[static_cast<std::size_t>(type)];
}

std::string_view rawValue(LoginType type) {
  return kLoginTypes[static_cast<std::size_t>(type)];
}
std::optional<LoginType> loginTypeFromRaw(std::string_view raw) {
  return fromRaw<LoginType>(kLoginTypes, raw);
}
std::string_view rawValue(LogoutType type) {
  return kLogoutTypes[static_cast<std::size_t>(type)];
}
std::optional<LogoutType> logoutTypeFromRaw(std::string_view raw) {
  return fromRaw<LogoutType>(kLogoutTypes, raw);
}

std::string IdentificationType::description() const {
  if (const auto* login = std::get_if<LoginType>(&type)) {
    return "login type: " + std::string(rawValue(*login));
  }
  return "logout type: " + std::string(rawValue(std::get<LogoutType>(type)));
}

std::string_view rawValue(FlowStatus status) {
  return kFlowStatuses[static_cast<std::size_t>(status)];
}
std::optional<FlowStatus> flowStatusFromRaw(std::string_view raw) {
  return fromRaw<FlowStatus>(kFlowStatuses, raw);
}
std::string_view rawValue(TimerStatus status) {
  return kTimerStatuses[static_cast<std::size_t>(status)];
}
std::optional<TimerStatus> timerStatusFromRaw(std::string_view raw) {
  return fromRaw<TimerStatus>(kTimerStatuses, raw);
}

std::optional<RankingScope> RankingScope::fromRaw(std::string_view raw) {
  auto scope = ostrel::fromRaw<_RankingScope>(kScopes, raw);
  if (!scope) return std::nullopt;
  return RankingScope(*scope);
}
std::string_view RankingScope::rawValue() const {
  return kScopes[static_cast<std::size_t>(scope)];
}

std::string_view rawValue(AttachType type) {
  return kAttachTypes[static_cast<std::size_t>(type)];
}
std::optional<AttachType> attachTypeFromRaw(std::string_view raw) {
  return fromRaw<AttachType>(kAttachTypes, raw);
}

}  // namespace ostrel
