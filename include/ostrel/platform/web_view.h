#pragma once
#include <string>

#include "ostrel/export.h"
#include "ostrel/result.h"

namespace ostrel::platform {

// Shows a page over the host's user interface. The view controller and the
// navigation delegate are the host's own handles, passed through untouched.
class OSTREL_API WebView {
 public:
  virtual ~WebView() = default;
  virtual Result<void> show(const std::string& url, void* onViewController,
                            void* navigationDelegate) = 0;
};

}  // namespace ostrel::platform
