#include "store/ol_disk_storage.h"

namespace ostrel {

OLError abstractStoreCall() {
  return OLError::LocalError(LocalErrorCodes::InvalidFunctionCalled,
                             "Cannot call this method on superclass");
}

}  // namespace ostrel
