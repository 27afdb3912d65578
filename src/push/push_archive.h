#pragma once
// Pushes kept on disk until the host asks for them.
#include <memory>
#include <string>
#include <string_view>

#include "ostrel/ol_push.h"
#include "ostrel/result.h"

namespace ostrel {

std::string archivePush(const OLPushBase& push);
// The push of an archive, or an error for garbage or a class that is not a push.
Result<std::shared_ptr<OLPushBase>> decodePush(std::string_view bytes);

}  // namespace ostrel
