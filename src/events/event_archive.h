#pragma once
// Decoding any stored event by its class name.
#include <memory>
#include <string_view>

#include "events/ol_base_event.h"

namespace ostrel {

// The event of an archive, or an error for garbage, an unknown class or an
// unknown stored kind.
Result<std::shared_ptr<OLBaseEvent>> decodeEvent(std::string_view bytes);

}  // namespace ostrel
