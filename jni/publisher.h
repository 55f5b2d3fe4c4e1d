#ifndef OXLI_JNI_PUBLISHER_H
#define OXLI_JNI_PUBLISHER_H

#include <jni.h>

#include "jni/base/references.h"
#include "jni/registry/registry.h"
#include "oxli.h"

namespace oxli::jni {

// Keeps a gateway publisher's Java `Publisher` reachable while it is registered. Unlike the other
// kinds, the Java handle is the gateway's publisher itself: no native needs the record.
struct PublisherData {
  ox_publisher_t* pub = nullptr;
  HeldRef jpub;

  // Guarded by JEnv::pubMutex.
  static Registry<ox_publisher_t, PublisherData> sPubMap;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_PUBLISHER_H
