#pragma once
// What a host configures before ostrel_start.
#include <memory>
#include <optional>
#include <string>

#include "ostrel/ol_simple_object.h"
#include "ostrel/ostrel.h"
#include "ostrel/ostrel_c.h"

struct ostrel_config {
  std::optional<std::string> secret;
  std::optional<std::string> storageDir;
  bool useEnvironment = false;
  std::optional<std::string> domain, scheme, connectTo, caFile;
  ostrel::AppInfo app;
  std::shared_ptr<ostrel::OLSimpleObject> customData;
  ostrel::ExternalParameters externalParameters;
  ostrel_log_fn log = nullptr;
  void* logUserData = nullptr;
};
