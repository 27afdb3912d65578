#pragma once
#include <optional>

#include "ostrel/export.h"
#include "ostrel/ol_error.h"

namespace ostrel {

// Implemented by the host; held weakly by the library. Called after the user
// state changed through a logout or a deletion, and when a login flow ends
// (with its error, if any).
class OSTREL_API UserStateChangeListener {
 public:
  virtual ~UserStateChangeListener() = default;
  virtual void onUserStateChanged(const std::optional<OLError>& error) = 0;
  virtual std::string description() const { return "UserStateChangeListener"; }
};

}  // namespace ostrel
