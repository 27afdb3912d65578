#pragma once
#include <optional>
#include <string>

#include "ostrel/export.h"
#include "ostrel/result.h"

namespace ostrel::platform {

// Where the store receipt of the app's purchases comes from.
class OSTREL_API ReceiptSource {
 public:
  virtual ~ReceiptSource() = default;
  // The receipt's bytes at `location`, or at the platform's own location when absent.
  virtual Result<std::string> readReceipt(const std::optional<std::string>& location) = 0;
  // The text form of the location that would be read.
  virtual std::string describe(const std::optional<std::string>& location) const = 0;
};

}  // namespace ostrel::platform
