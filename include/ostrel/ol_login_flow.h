#pragma once
// The login flows a host obtains from OLLoginBuilder. Each is started once;
// its outcome reaches the builder's flow-complete callback.
#include <string>

#include "ostrel/export.h"

namespace ostrel {

class OSTREL_API OLLoginFlow {
 public:
  virtual ~OLLoginFlow() = default;
  virtual void startLoginFlow() = 0;
  virtual std::string description() const = 0;
};

// Flows that only ask the service for a reminder or a new PIN; no login follows.
class OSTREL_API OLForgotFlow {
 public:
  virtual ~OLForgotFlow() = default;
  virtual void startForgotFlow() = 0;
};

class OSTREL_API OLAutoLoginFlow : public virtual OLLoginFlow {};
class OSTREL_API OLEmailPasswordLoginFlow : public virtual OLLoginFlow {};
class OSTREL_API OLEmailSignupLoginFlow : public virtual OLLoginFlow {};
// Starting it as a login flow asks for the reminder too.
class OSTREL_API OLEmailForgotFlow : public virtual OLLoginFlow, public virtual OLForgotFlow {};
class OSTREL_API OLEmailResendFlow : public virtual OLLoginFlow {};
// Its forgot request asks the service for a new PIN.
class OSTREL_API OLMSISDNPINLoginFlow : public virtual OLLoginFlow, public virtual OLForgotFlow {};
class OSTREL_API OLMSISDNUserRecognitionLoginFlow : public virtual OLLoginFlow {};
class OSTREL_API OLCustomLoginFlow : public virtual OLLoginFlow {};
class OSTREL_API OLExternalLoginFlow : public virtual OLLoginFlow {};
class OSTREL_API OLPaymentReceiptLoginFlow : public virtual OLLoginFlow {};
class OSTREL_API OLMFPLoginFlow : public virtual OLLoginFlow {};
class OSTREL_API OLUO2CredentialsLoginFlow : public virtual OLLoginFlow {};
// Adds an e-mail identity to the logged user's account.
class OSTREL_API OLAddEmailIdentityFlow : public virtual OLLoginFlow {};

}  // namespace ostrel
