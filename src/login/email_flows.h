#pragma once
// Log in, sign up, or help a user, with an e-mail address.
#include "login/ol_login_flow_base.h"

namespace ostrel {

class OLSimpleObject;

class OLEmailPasswordLoginFlowImpl : public OLLoginFlowBase, public OLEmailPasswordLoginFlow {
 public:
  OLEmailPasswordLoginFlowImpl(std::shared_ptr<OLStatus> state, OLConnector connector,
                               std::string email, std::optional<std::string> password);
  void startLoginFlow() override;
  std::string className() const override { return "OLEmailPasswordLoginFlow"; }

  std::string _email;
  std::optional<std::string> _password;
};

class OLEmailSignupLoginFlowImpl : public OLLoginFlowBase, public OLEmailSignupLoginFlow {
 public:
  OLEmailSignupLoginFlowImpl(std::shared_ptr<OLStatus> state, OLConnector connector,
                             std::string email, std::optional<std::string> password,
                             std::shared_ptr<OLSimpleObject> userProperties);
  void startLoginFlow() override;
  std::string className() const override { return "OLEmailSignupLoginFlow"; }

  std::string _email;
  std::optional<std::string> _password;
  std::shared_ptr<OLSimpleObject> _userProperties;
};

// Asks for a password reminder; may run beside another flow.
class OLEmailForgotFlowImpl : public OLLoginFlowBase, public OLEmailForgotFlow {
 public:
  OLEmailForgotFlowImpl(std::shared_ptr<OLStatus> state, OLConnector connector, std::string email);
  // Succeeds while nobody is logged; takes no slot.
  Result<void> checkStartRequirements() override;
  void startLoginFlow() override { startForgotFlow(); }
  void startForgotFlow() override;
  std::string className() const override { return "OLEmailForgotFlow"; }

  std::string _email;
};

// Asks the service to send the confirmation message again.
class OLEmailResendFlowImpl : public OLLoginFlowBase, public OLEmailResendFlow {
 public:
  OLEmailResendFlowImpl(std::shared_ptr<OLStatus> state, OLConnector connector, std::string email);
  void startLoginFlow() override;
  std::string className() const override { return "OLEmailResendFlow"; }

  std::string _email;
};

}  // namespace ostrel
