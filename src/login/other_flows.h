#pragma once
// The login flows beyond e-mail and MSISDN.
//  - custom: the host's own user id becomes the user, token "C_" + id; no request.
//  - external: a service token obtained elsewhere is handed over; no request.
//  - payment receipt: the store receipt of an offer logs the user in.
//  - mobile fingerprint (MFP): a session and user decoded from the pony are taken over.
//  - partner credentials (UO2): the partner's user and info log the user in.
#include "login/ol_login_flow_base.h"

namespace ostrel {

class OLSimpleObject;

class OLCustomLoginFlowImpl : public OLLoginFlowBase, public OLCustomLoginFlow {
 public:
  OLCustomLoginFlowImpl(std::shared_ptr<OLStatus> state, OLConnector connector,
                        std::string customId)
      : OLLoginFlowBase(std::move(state), std::move(connector)), _customId(std::move(customId)) {}
  void startLoginFlow() override;
  std::string className() const override { return "OLCustomLoginFlow"; }
  std::string _customId;
};

class OLExternalLoginFlowImpl : public OLLoginFlowBase, public OLExternalLoginFlow {
 public:
  OLExternalLoginFlowImpl(std::shared_ptr<OLStatus> state, OLConnector connector,
                          std::string externalId)
      : OLLoginFlowBase(std::move(state), std::move(connector)),
        _externalId(std::move(externalId)) {}
  void startLoginFlow() override;
  std::string className() const override { return "OLExternalLoginFlow"; }
  std::string _externalId;
};

class OLPaymentReceiptLoginFlowImpl : public OLLoginFlowBase, public OLPaymentReceiptLoginFlow {
 public:
  OLPaymentReceiptLoginFlowImpl(std::shared_ptr<OLStatus> state, OLConnector connector,
                                std::string offerId, std::optional<std::string> receiptUrl,
                                std::shared_ptr<OLSimpleObject> emailParams)
      : OLLoginFlowBase(std::move(state), std::move(connector)),
        _offerId(std::move(offerId)),
        _receiptUrl(std::move(receiptUrl)),
        _emailParams(std::move(emailParams)) {}
  void startLoginFlow() override;
  std::string className() const override { return "OLPaymentReceiptLoginFlow"; }
  std::string _offerId;
  std::optional<std::string> _receiptUrl;
  std::shared_ptr<OLSimpleObject> _emailParams;
};

class OLMFPLoginFlowImpl : public OLLoginFlowBase, public OLMFPLoginFlow {
 public:
  OLMFPLoginFlowImpl(std::shared_ptr<OLStatus> state, OLConnector connector, std::string sessionId,
                     std::string userId)
      : OLLoginFlowBase(std::move(state), std::move(connector)),
        _sessionId(std::move(sessionId)),
        _userId(std::move(userId)) {}
  void startLoginFlow() override;
  std::string className() const override { return "OLMFPLoginFlow"; }
  std::string _sessionId;
  std::string _userId;
};

class OLUO2CredentialsLoginFlowImpl : public OLLoginFlowBase, public OLUO2CredentialsLoginFlow {
 public:
  OLUO2CredentialsLoginFlowImpl(std::shared_ptr<OLStatus> state, OLConnector connector,
                                std::string brivolaUser, std::string infoUtente)
      : OLLoginFlowBase(std::move(state), std::move(connector)),
        _brivolaUser(std::move(brivolaUser)),
        _infoUtente(std::move(infoUtente)) {}
  void startLoginFlow() override;
  std::string className() const override { return "OLUO2CredentialsLoginFlow"; }
  std::string _brivolaUser;
  std::string _infoUtente;
};

}  // namespace ostrel
