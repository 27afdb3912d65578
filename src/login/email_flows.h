#pragma once
// Log in, sign up, or help a user, with an e-mail address.
#include "login/ol_login_flow_base.h"

namespace ostrel {

class OLSimpleObject;

class OLEmailPasswordLoginFlow : public OLLoginFlowBase {
 public:
  OLEmailPasswordLoginFlow(std::shared_ptr<OLStatus> state, OLConnector connector,
                           std::string email, std::optional<std::string> password);
  void startLoginFlow() override;
  std::string className() const override { return "OLEmailPasswordLoginFlow"; }

  std::string _email;
  std::optional<std::string> _password;
};

class OLEmailSignupLoginFlow : public OLLoginFlowBase {
 public:
  OLEmailSignupLoginFlow(std::shared_ptr<OLStatus> state, OLConnector connector, std::string email,
                         std::optional<std::string> password,
                         std::shared_ptr<OLSimpleObject> userProperties);
  void startLoginFlow() override;
  std::string className() const override { return "OLEmailSignupLoginFlow"; }

  std::string _email;
  std::optional<std::string> _password;
  std::shared_ptr<OLSimpleObject> _userProperties;
};

// Asks for a password reminder; may run beside another flow.
class OLEmailForgotFlow : public OLLoginFlowBase, public OLForgotFlow {
 public:
  OLEmailForgotFlow(std::shared_ptr<OLStatus> state, OLConnector connector, std::string email);
  // Succeeds while nobody is logged; takes no slot.
  Result<void> checkStartRequirements() override;
  void startLoginFlow() override { startForgotFlow(); }
  void startForgotFlow() override;
  std::string className() const override { return "OLEmailForgotFlow"; }

  std::string _email;
};

// Asks the service to send the confirmation message again.
class OLEmailResendFlow : public OLLoginFlowBase {
 public:
  OLEmailResendFlow(std::shared_ptr<OLStatus> state, OLConnector connector, std::string email);
  void startLoginFlow() override;
  std::string className() const override { return "OLEmailResendFlow"; }

  std::string _email;
};

}  // namespace ostrel
