#ifndef OXLI_JNI_ENVIRONMENT_H
#define OXLI_JNI_ENVIRONMENT_H

#include <jni.h>

#include <memory>

#include "jni/base/references.h"

namespace oxli::jni {

// The receiver of the exit event; the gateway gets its address. One in the process, made by the
// first registration and kept to the end, so that a late event finds it. Not locked: registering
// must not overlap an event being delivered.
struct ExitEventData {
  HeldRef handler;       // the Java IExitEventHandler, or null
  JavaVM* vm = nullptr;  // of the latest registration
};

extern std::unique_ptr<ExitEventData> sExitEventData;

}  // namespace oxli::jni

extern "C" {

// The gateway's exit event, on a thread of the gateway's choosing: calls `onExitEvent` of the
// handler. Attaches the thread to the virtual machine when it has to, and detaches it afterwards,
// unless the handler threw. `data`: the ExitEventData.
JNIEXPORT void ExitEventCB(void* data);
}

#endif  // OXLI_JNI_ENVIRONMENT_H
