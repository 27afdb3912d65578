#pragma once
// The C handle of a login builder.
#include <memory>

#include "ostrel/ol_login_builder.h"

struct ostrel_login {
  std::shared_ptr<ostrel::OLLoginBuilder> builder;
  // A builder keeps one completion callback: a second flow would take over
  // the first one's, so each builder starts one flow.
  bool started = false;
};
