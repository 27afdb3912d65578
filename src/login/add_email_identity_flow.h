#pragma once
#include <memory>
#include <string>

#include "login/ol_login_flow_base.h"
#include "ostrel/ol_login_flow.h"

namespace ostrel {

class OLAddEmailIdentityFlowImpl : public OLLoginFlowBase, public OLAddEmailIdentityFlow {
 public:
  OLAddEmailIdentityFlowImpl(std::shared_ptr<OLStatus> state, OLConnector connector,
                             std::string email, std::string password)
      : OLLoginFlowBase(std::move(state), std::move(connector)),
        _email(std::move(email)),
        _password(std::move(password)) {}
  // Needs a logged user; takes the running slot like a login.
  Result<void> checkStartRequirements() override;
  void startLoginFlow() override;
  std::string className() const override { return "OLAddEmailIdentityFlow"; }
  std::string _email;
  std::string _password;
};

}  // namespace ostrel
