// Start, stop and the instance-wide settings of the C API.
#include "capi/c_instance.h"

#include <chrono>

#include "capi/c_config.h"
#include "capi/c_error.h"
#include "capi/c_platform.h"
#include "capi/c_text.h"

using namespace ostrel::capi;

namespace ostrel::capi {

ostrel_code_t needInstance(const ostrel_t* instance, ostrel_error_t** error) {
  return instance ? OSTREL_OK : invalidArgument(error, "instance is NULL");
}

}  // namespace ostrel::capi

extern "C" {

int ostrel_c_api_version(void) {
  return OSTREL_C_API_VERSION;
}

const char* ostrel_version_string(void) {
  try {
    return ostrel::Ostrel::versionString().c_str();
  } catch (...) {
    return "";
  }
}

ostrel_code_t ostrel_start(const ostrel_config_t* config, ostrel_t** instance,
                           ostrel_error_t** error) {
  return guarded(error, [&] {
    if (instance) *instance = nullptr;
    if (!config) return invalidArgument(error, "config is NULL");
    OSTREL_C_CHECK(needOut(instance, "instance", error));
    if (!config->secret) return invalidArgument(error, "no secret: call ostrel_config_set_secret");
    auto platform = platformFor(*config);
    if (!platform) return fail(error, platform.error());
    auto handle = std::make_unique<ostrel_instance>();
    std::optional<ostrel::ExternalParameters> parameters;
    if (!config->externalParameters.empty()) parameters = config->externalParameters;
    auto facade = ostrel::Ostrel::getSharedInstanceWithConfig(*config->secret, config->customData,
                                                              parameters, std::move(*platform));
    if (!facade) return fail(error, facade.error());
    handle->facade = std::move(*facade);
    *instance = handle.release();
    return OSTREL_OK;
  });
}

int ostrel_wait_until_persisted(ostrel_t* instance, uint32_t timeout_ms) {
  if (!instance) return 0;
  try {
    return instance->facade->waitUntilPersisted(std::chrono::milliseconds(timeout_ms)) ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

ostrel_code_t ostrel_shutdown(ostrel_t* instance, uint32_t timeout_ms, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    instance->facade->shutdown(std::chrono::milliseconds(timeout_ms));
    instance->shutDown = true;
    return OSTREL_OK;
  });
}

void ostrel_free(ostrel_t* instance) {
  if (!instance) return;
  try {
    if (!instance->shutDown) instance->facade->shutdown(std::chrono::seconds(1));
  } catch (...) {
    // Freeing goes on: the exit-time step still persists what was accepted.
  }
  delete instance;
}

ostrel_code_t ostrel_get_session_id(ostrel_t* instance, char** session_id, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    OSTREL_C_CHECK(needOut(session_id, "session_id", error));
    auto id = instance->facade->getSessionId();
    if (!id) return fail(error, id.error());
    *session_id = copyOut(*id);
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_get_environment(ostrel_t* instance, char** environment,
                                     ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    OSTREL_C_CHECK(needOut(environment, "environment", error));
    *environment = copyOut(instance->facade->environmentString());
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_set_distribution_group(ostrel_t* instance, const char* group,
                                            ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    std::string text;
    OSTREL_C_CHECK(readText(group, "group", text, error));
    if (auto set = instance->facade->setDistributionGroup(text); !set) {
      return fail(error, set.error());
    }
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_unset_distribution_group(ostrel_t* instance, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needInstance(instance, error));
    instance->facade->unSetDistributionGroup();
    return OSTREL_OK;
  });
}

}  // extern "C"
