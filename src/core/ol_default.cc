#include "core/ol_default.h"

namespace ostrel {

void OLDefault::removeAll(const std::optional<std::string>& bundleIdentifier) {
  // One settings domain per installation: the bundle identifier only guards the call.
  if (!bundleIdentifier || bundleIdentifier->empty()) return;
  userDefaults_->removeAll();
  userDefaults_->synchronize();
}

}  // namespace ostrel
