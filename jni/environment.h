#ifndef OXLI_JNI_ENVIRONMENT_H
#define OXLI_JNI_ENVIRONMENT_H

#include <jni.h>

#include <memory>

#include "jni/base/references.h"

namespace oxli::jni {

// Stores the Java handler of the exit event. The address of this object is the gateway's callback
// data. The first registration creates the only object. It exists until the library is unloaded,
// because an event may arrive after the environment is closed. Not locked: registering must not
// overlap the delivery of an event.
struct ExitEventData {
  GlobalRef handler;     // the Java IExitEventHandler, or null
  JavaVM* vm = nullptr;  // the virtual machine of the latest registration
};

extern std::unique_ptr<ExitEventData> sExitEventData;

}  // namespace oxli::jni

#endif  // OXLI_JNI_ENVIRONMENT_H
