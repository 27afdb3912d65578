#pragma once
#include "login/ol_login_flow_base.h"

namespace ostrel {

// Renews the session of an already known user from its stored token.
class OLAutoLoginFlowImpl : public OLLoginFlowBase, public OLAutoLoginFlow {
 public:
  OLAutoLoginFlowImpl(std::shared_ptr<OLStatus> state, OLConnector connector,
                      std::string bhandleKey = "user_id")
      : OLLoginFlowBase(std::move(state), std::move(connector)),
        bhandleKey(std::move(bhandleKey)) {}

  // Takes the slot; only a user who is neither anonymous nor custom qualifies.
  Result<void> checkStartRequirements() override;
  void startLoginFlow() override;
  std::string className() const override { return "OLAutoLoginFlow"; }

  std::string bhandleKey;
};

}  // namespace ostrel
