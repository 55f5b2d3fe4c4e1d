#ifndef OXLI_JNI_ENVIRONMENT_H
#define OXLI_JNI_ENVIRONMENT_H

#include <jni.h>

#include <memory>

#include "jni/base/references.h"

namespace oxli::jni {

// The receiver of the exit event; its address is the gateway's callback data. The process has one,
// made by the first registration and kept until the process ends, so that a late event finds it.
// Not locked: registering must not overlap the delivery of an event.
struct ExitEventData {
  GlobalRef handler;     // the Java IExitEventHandler, or null
  JavaVM* vm = nullptr;  // of the latest registration
};

extern std::unique_ptr<ExitEventData> sExitEventData;

}  // namespace oxli::jni

#endif  // OXLI_JNI_ENVIRONMENT_H
