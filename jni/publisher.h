#ifndef OXLI_JNI_PUBLISHER_H
#define OXLI_JNI_PUBLISHER_H

#include <jni.h>

#include "jni/base/references.h"
#include "jni/base/thread_annotations.h"
#include "jni/jenv/jenv.h"
#include "jni/registry/registry.h"
#include "oxli.h"

namespace oxli::jni {

// Keeps the Java `Publisher` of a gateway publisher reachable while it is registered. The Java
// handle is the address of the gateway publisher, not of this record.
struct PublisherData {
  // Releases the reference and deletes the record. REQUIRES: no registry entry refers to it.
  void retire(JNIEnv* env);

  ox_publisher_t* pub = nullptr;
  GlobalRef jpub;

  static Registry<ox_publisher_t, PublisherData> sPubMap GUARDED_BY(JEnv::spInstance->pubMutex);
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_PUBLISHER_H
