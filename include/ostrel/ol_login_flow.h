#pragma once
// The login flows a host obtains from OLLoginBuilder. Each is started once;
// its outcome reaches the builder's flow-complete callback.
#include <string>

namespace ostrel {

class OLLoginFlow {
 public:
  virtual ~OLLoginFlow() = default;
  virtual void startLoginFlow() = 0;
  virtual std::string description() const = 0;
};

// Flows that only ask the service for a reminder or a new PIN; no login follows.
class OLForgotFlow {
 public:
  virtual ~OLForgotFlow() = default;
  virtual void startForgotFlow() = 0;
};

class OLAutoLoginFlow : public virtual OLLoginFlow {};
class OLEmailPasswordLoginFlow : public virtual OLLoginFlow {};
class OLEmailSignupLoginFlow : public virtual OLLoginFlow {};
// Starting it as a login flow asks for the reminder too.
class OLEmailForgotFlow : public virtual OLLoginFlow, public virtual OLForgotFlow {};
class OLEmailResendFlow : public virtual OLLoginFlow {};
// Its forgot request asks the service for a new PIN.
class OLMSISDNPINLoginFlow : public virtual OLLoginFlow, public virtual OLForgotFlow {};
class OLMSISDNUserRecognitionLoginFlow : public virtual OLLoginFlow {};
class OLCustomLoginFlow : public virtual OLLoginFlow {};
class OLExternalLoginFlow : public virtual OLLoginFlow {};
class OLPaymentReceiptLoginFlow : public virtual OLLoginFlow {};
class OLMFPLoginFlow : public virtual OLLoginFlow {};
class OLUO2CredentialsLoginFlow : public virtual OLLoginFlow {};
// Adds an e-mail identity to the logged user's account.
class OLAddEmailIdentityFlow : public virtual OLLoginFlow {};

}  // namespace ostrel
