// ostrel_config_*: plain setters; the library checks the values at start.
#include <new>

#include "capi/c_config.h"
#include "capi/c_error.h"
#include "capi/c_text.h"

using namespace ostrel::capi;

namespace {

ostrel_code_t needConfig(const ostrel_config_t* config, ostrel_error_t** error) {
  return config ? OSTREL_OK : invalidArgument(error, "config is NULL");
}

}  // namespace

extern "C" {

ostrel_config_t* ostrel_config_new(void) {
  return new (std::nothrow) ostrel_config();
}

void ostrel_config_free(ostrel_config_t* config) {
  delete config;
}

ostrel_code_t ostrel_config_set_secret(ostrel_config_t* config, const char* secret,
                                       ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needConfig(config, error));
    std::string text;
    OSTREL_C_CHECK(readText(secret, "secret", text, error));
    config->secret = std::move(text);
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_config_set_storage_dir(ostrel_config_t* config, const char* path,
                                            ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needConfig(config, error));
    std::string text;
    OSTREL_C_CHECK(readText(path, "path", text, error));
    if (text.empty() || text.front() != '/') {
      return invalidArgument(error, "the storage folder must be an absolute path");
    }
    while (text.size() > 1 && text.back() == '/') text.pop_back();
    config->storageDir = std::move(text);
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_config_use_environment_deployment(ostrel_config_t* config, int enabled,
                                                       ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needConfig(config, error));
    config->useEnvironment = enabled != 0;
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_config_set_service(ostrel_config_t* config, const char* domain,
                                        const char* scheme, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needConfig(config, error));
    std::optional<std::string> d, s;
    OSTREL_C_CHECK(readOptionalText(domain, "domain", d, error));
    OSTREL_C_CHECK(readOptionalText(scheme, "scheme", s, error));
    if (d) config->domain = std::move(d);
    if (s) config->scheme = std::move(s);
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_config_set_network(ostrel_config_t* config, const char* connect_to,
                                        const char* ca_file, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needConfig(config, error));
    std::optional<std::string> to, ca;
    OSTREL_C_CHECK(readOptionalText(connect_to, "connect_to", to, error));
    OSTREL_C_CHECK(readOptionalText(ca_file, "ca_file", ca, error));
    if (to) config->connectTo = std::move(to);
    if (ca) config->caFile = std::move(ca);
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_config_set_app_identity(ostrel_config_t* config, const char* app_identifier,
                                             const char* app_version, const char* app_build,
                                             ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needConfig(config, error));
    std::optional<std::string> id, version, build;
    OSTREL_C_CHECK(readOptionalText(app_identifier, "app_identifier", id, error));
    OSTREL_C_CHECK(readOptionalText(app_version, "app_version", version, error));
    OSTREL_C_CHECK(readOptionalText(app_build, "app_build", build, error));
    if (id) config->app.identifier = std::move(*id);
    if (version) config->app.version = std::move(*version);
    if (build) config->app.build = std::move(*build);
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_config_set_development(ostrel_config_t* config, int development,
                                            ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needConfig(config, error));
    config->app.development = development != 0;
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_config_set_custom_data_json(ostrel_config_t* config, const char* json,
                                                 ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needConfig(config, error));
    std::shared_ptr<ostrel::OLSimpleObject> data;
    OSTREL_C_CHECK(readCustomData(json, "json", data, error));
    config->customData = std::move(data);
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_config_set_external_parameter(ostrel_config_t* config, const char* key,
                                                   const char* value, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needConfig(config, error));
    std::string k, v;
    OSTREL_C_CHECK(readText(key, "key", k, error));
    OSTREL_C_CHECK(readText(value, "value", v, error));
    auto parameter = k == ostrel::OLExternalParameterKey::DistributionGroup().rawValue()
                         ? ostrel::OLExternalParameterKey::DistributionGroup()
                         : ostrel::OLExternalParameterKey::Custom(k);
    config->externalParameters.insert_or_assign(parameter, std::move(v));
    return OSTREL_OK;
  });
}

ostrel_code_t ostrel_config_set_log_callback(ostrel_config_t* config, ostrel_log_fn callback,
                                             void* user_data, ostrel_error_t** error) {
  return guarded(error, [&] {
    OSTREL_C_CHECK(needConfig(config, error));
    config->log = callback;
    config->logUserData = user_data;
    return OSTREL_OK;
  });
}

}  // extern "C"
