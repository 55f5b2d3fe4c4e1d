#ifndef OXLI_LOOPBACK_ENVIRONMENT_H
#define OXLI_LOOPBACK_ENVIRONMENT_H

#include "loopback/objects.h"

namespace inproc {

// Calls the registered exit callback on this thread; false when there is none. The lock must not be
// held.
bool raiseExitEvent();

}  // namespace inproc

#endif  // OXLI_LOOPBACK_ENVIRONMENT_H
