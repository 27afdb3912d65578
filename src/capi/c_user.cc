// The user's state through the C API.
#include <mutex>
#include <string>

#include "capi/c_callbacks.h"
#include "capi/c_error.h"
#include "capi/c_instance.h"
#include "capi/c_text.h"

using namespace ostrel::capi;

namespace {

class CUserStateListener final : public ostrel::UserStateChangeListener {
 public:
  CUserStateListener(ostrel_result_fn fn, void* userData) : fn_(fn), userData_(userData) {}
  void onUserStateChanged(const std::optional<ostrel::OLError>& error) override {
    deliver(fn_, userData_, error, nullptr);
  }
  std::string description() const override { return "C UserStateChangeListener"; }

 private:
  ostrel_result_fn fn_;
  void* userData_;
};

}  // namespace

extern "C" {

ostrel_code_t ostrel_get_user_token(ostrel_t* instance, char** token, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    OSTREL_C_CHECK(needOut(token, "token", error));
    auto current = instance->facade->getUserToken();
    if (!current) return fail(error, current.error());
    *token = copyOut(*current);
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_is_user_logged(ostrel_t* instance, int* logged, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    OSTREL_C_CHECK(needOut(logged, "logged", error));
    auto answer = instance->facade->isUserLogged();
    if (!answer) return fail(error, answer.error());
    *logged = *answer ? 1 : 0;
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_user_logout(ostrel_t* instance, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    if (auto done = instance->facade->userLogout(); !done) return fail(error, done.error());
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_sync_user_state(ostrel_t* instance, ostrel_result_fn callback, void* user_data,
                                     ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    instance->facade->syncUserState(errorCallback(callback, user_data));
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_get_user_meta_info(ostrel_t* instance, ostrel_result_fn callback,
                                        void* user_data, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    instance->facade->getUserMetaInfo(jsonCallback(callback, user_data));
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_set_user_state_listener(ostrel_t* instance, ostrel_result_fn callback,
                                             void* user_data, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    std::shared_ptr<ostrel::UserStateChangeListener> listener;
    if (callback) listener = std::make_shared<CUserStateListener>(callback, user_data);
    std::lock_guard lock(instance->mutex);
    if (auto set = instance->facade->setOnUserStateChangeListener(listener); !set) {
      return fail(error, set.error());
    }
    instance->listener = std::move(listener);
    return OSTREL_OK;
  });
}

}  // extern "C"
