#pragma once
// Identity management: a logged user adds an e-mail identity (address and
// password) to the account the service knows.
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ostrel/callbacks.h"
#include "ostrel/export.h"
#include "ostrel/ol_login_flow.h"
#include "ostrel/result.h"

namespace ostrel {

class ConnectorBuilder;
class OLStatus;
class OstrelFacadeImpl;

// Obtained from OLIdentityManager::getIdentityBuilder.
class OSTREL_API OLIdentityBuilder {
 public:
  OLIdentityBuilder& setEmail(std::string email);
  OLIdentityBuilder& setPassword(std::string password);
  // Runs once per started flow, on the library's network thread.
  OLIdentityBuilder& setOnFlowCompleteCallback(ErrorCallback callback);
  // Fails with IdentityBuilderError without touching the network.
  Result<std::shared_ptr<OLAddEmailIdentityFlow>> getAddEmailIdentityFlow();

 private:
  friend class OLIdentityManager;
  OLIdentityBuilder(std::shared_ptr<OLStatus> state, std::shared_ptr<ConnectorBuilder> connectors)
      : state_(std::move(state)), connectors_(std::move(connectors)) {}

  std::shared_ptr<OLStatus> state_;
  std::shared_ptr<ConnectorBuilder> connectors_;
  std::optional<std::string> email_;
  std::optional<std::string> password_;
  ErrorCallback callback_;
};

// Obtained from Ostrel::getIdentityManager.
class OSTREL_API OLIdentityManager {
 public:
  OLIdentityBuilder getIdentityBuilder() const { return OLIdentityBuilder(state_, connectors_); }

 private:
  friend class OstrelFacadeImpl;
  OLIdentityManager(std::shared_ptr<OLStatus> state, std::shared_ptr<ConnectorBuilder> connectors)
      : state_(std::move(state)), connectors_(std::move(connectors)) {}

  std::shared_ptr<OLStatus> state_;
  std::shared_ptr<ConnectorBuilder> connectors_;
};

}  // namespace ostrel
