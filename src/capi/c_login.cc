// Login builders and flows through the C API.
#include "capi/c_login.h"

#include <string>

#include "capi/c_callbacks.h"
#include "capi/c_error.h"
#include "capi/c_instance.h"
#include "capi/c_text.h"

using namespace ostrel::capi;

namespace {

using Builder = ostrel::OLLoginBuilder;

ostrel_code_t needLogin(const ostrel_login_t* login, ostrel_error_t** error) {
  return login ? OSTREL_OK : invalidArgument(error, "login is NULL");
}

// Every setter that takes one text.
ostrel_code_t setText(ostrel_login_t* login, const char* value, const char* what,
                      Builder& (Builder::*setter)(std::string), ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needLogin(login, error));
    std::string text;
    OSTREL_C_CHECK(readText(value, what, text, error));
    ((*login->builder).*setter)(std::move(text));
    return OSTREL_OK;
  });
}

// Every setter that takes a simple object.
ostrel_code_t setObject(ostrel_login_t* login, const char* json,
                        Builder& (Builder::*setter)(std::shared_ptr<ostrel::OLSimpleObject>),
                        ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needLogin(login, error));
    std::shared_ptr<ostrel::OLSimpleObject> data;
    OSTREL_C_CHECK(readCustomData(json, "json", data, error));
    ((*login->builder).*setter)(std::move(data));
    return OSTREL_OK;
  });
}

// Asks the builder for a flow and starts it as a login (or a forgot request).
template <class Getter>
ostrel_code_t start(Builder& builder, Getter getter, bool forgot, ostrel_error_t** error) {
  auto flow = (builder.*getter)();
  if (!flow) return fail(error, flow.error());
  if constexpr (requires { (*flow)->startForgotFlow(); }) {
    if (forgot) {
      (*flow)->startForgotFlow();
      return OSTREL_OK;
    }
  }
  (*flow)->startLoginFlow();
  return OSTREL_OK;
}

}  // namespace

extern "C" {

ostrel_code_t ostrel_login_new(ostrel_t* instance, ostrel_login_t** login, ostrel_error_t** error) {
  return guarded(error, [&] {
    if (login) *login = nullptr;
    OSTREL_C_CHECK(needInstance(instance, error));
    OSTREL_C_CHECK(needOut(login, "login", error));
    auto builder = instance->facade->getLoginBuilder();
    if (!builder) return fail(error, builder.error());
    *login = new ostrel_login{std::move(*builder)};
    return OSTREL_OK;
  });
}

void ostrel_login_free(ostrel_login_t* login) {
  delete login;
}

ostrel_code_t ostrel_login_set_email(ostrel_login_t* login, const char* email,
                                     ostrel_error_t** error) {
  return setText(login, email, "email", &Builder::setEmail, error);
}

ostrel_code_t ostrel_login_set_password(ostrel_login_t* login, const char* password,
                                        ostrel_error_t** error) {
  return setText(login, password, "password", &Builder::setPassword, error);
}

ostrel_code_t ostrel_login_set_msisdn(ostrel_login_t* login, const char* msisdn,
                                      ostrel_error_t** error) {
  return setText(login, msisdn, "msisdn", &Builder::setMSISDN, error);
}

ostrel_code_t ostrel_login_set_pin(ostrel_login_t* login, const char* pin, ostrel_error_t** error) {
  return setText(login, pin, "pin", &Builder::setPIN, error);
}

ostrel_code_t ostrel_login_set_no_pin(ostrel_login_t* login, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needLogin(login, error));
    login->builder->setNOPIN();
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_login_set_imsi(ostrel_login_t* login, const char* imsi,
                                    ostrel_error_t** error) {
  return setText(login, imsi, "imsi", &Builder::setIMSI, error);
}

ostrel_code_t ostrel_login_set_custom_data_json(ostrel_login_t* login, const char* json,
                                                ostrel_error_t** error) {
  return setObject(login, json, &Builder::setCustomData, error);
}

ostrel_code_t ostrel_login_set_product_email_params_json(ostrel_login_t* login, const char* json,
                                                         ostrel_error_t** error) {
  return setObject(login, json, &Builder::setProductEmailParams, error);
}

ostrel_code_t ostrel_login_set_user_properties_json(ostrel_login_t* login, const char* json,
                                                    ostrel_error_t** error) {
  return setObject(login, json, &Builder::setUserProperties, error);
}

ostrel_code_t ostrel_login_start(ostrel_login_t* login, ostrel_login_flow_t flow,
                                 ostrel_result_fn callback, void* user_data,
                                 ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needLogin(login, error));
    if (login->started) {
      return invalidArgument(error, "this login builder already started a flow; make a new one");
    }
    Builder& b = *login->builder;
    b.setOnFlowCompleteCallback(errorCallback(callback, user_data));
    ostrel_code_t code = OSTREL_OK;
    switch (flow) {
      case OSTREL_LOGIN_EMAIL:
        code = start(b, &Builder::getEmailLoginFlow, false, error);
        break;
      case OSTREL_LOGIN_EMAIL_SIGNUP:
        code = start(b, &Builder::getEmailSignupFlow, false, error);
        break;
      case OSTREL_LOGIN_EMAIL_FORGOT:
        code = start(b, &Builder::getEmailForgotFlow, true, error);
        break;
      case OSTREL_LOGIN_EMAIL_RESEND:
        code = start(b, &Builder::getEmailResendFlow, false, error);
        break;
      case OSTREL_LOGIN_MSISDN_PIN:
        code = start(b, &Builder::getMSISDPINLoginFlow, false, error);
        break;
      case OSTREL_LOGIN_MSISDN_PIN_FORGOT:
        code = start(b, &Builder::getMSISDPINLoginFlow, true, error);
        break;
      case OSTREL_LOGIN_MSISDN_RECOGNITION:
        code = start(b, &Builder::getMSISDNURLoginFlow, false, error);
        break;
      default:
        code = invalidArgument(error, "flow is not an ostrel_login_flow_t");
    }
    // A refused flow never started: the builder may try again.
    login->started = code == OSTREL_OK;
    return code;
  });
}

}  // extern "C"
