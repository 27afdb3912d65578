#pragma once
#include <string_view>

#include "ostrel/export.h"

namespace ostrel::platform {

// Where the library's console lines go (stdout by default). One call per line,
// without the line break. May be called from any thread.
class OSTREL_API LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void write(std::string_view line) = 0;
};

}  // namespace ostrel::platform
