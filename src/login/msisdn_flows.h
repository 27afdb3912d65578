#pragma once
// Identify a user by the mobile number: with a PIN, or recognised by the
// mobile network through the operator.
#include "login/ol_login_flow_base.h"

namespace ostrel {

// The PIN placeholder that tells the service the user has no PIN.
inline constexpr const char* kNoPinSentinel = "__NO_PIN_SENTINEL__";

class OLMSISDNPINLoginFlowImpl : public OLLoginFlowBase, public OLMSISDNPINLoginFlow {
 public:
  OLMSISDNPINLoginFlowImpl(std::shared_ptr<OLStatus> state, OLConnector connector,
                           std::string msisdn, std::optional<std::string> pin);
  void startLoginFlow() override;
  // Asks for a new PIN; needs only the number and may run beside another flow.
  void startForgotFlow() override;
  std::string className() const override { return "OLMSISDNPINLoginFlow"; }

  std::string _msisdn;
  std::optional<std::string> _pin;
};

class OLMSISDNUserRecognitionLoginFlowImpl : public OLLoginFlowBase,
                                             public OLMSISDNUserRecognitionLoginFlow {
 public:
  OLMSISDNUserRecognitionLoginFlowImpl(std::shared_ptr<OLStatus> state, OLConnector connector,
                                       std::optional<std::string> imsi, int bounces,
                                       std::string pattern);
  void startLoginFlow() override;
  std::string className() const override { return "OLMSISDNUserRecognitionLoginFlow"; }

  // A reply from the service logs in; a reply from the operator (outside the
  // service's domain) is forwarded back, at most three times.
  void parseOstrelResponse(std::optional<OLError> error, int64_t statusCode,
                           std::optional<Json> body);

  std::optional<std::string> _imsi;
  int bounces;
  std::string pattern;
};

}  // namespace ostrel
