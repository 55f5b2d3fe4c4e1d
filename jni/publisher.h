#ifndef OXLI_JNI_PUBLISHER_H
#define OXLI_JNI_PUBLISHER_H

#include <jni.h>

#include "jni/base/references.h"
#include "jni/base/thread_annotations.h"
#include "jni/jenv/jenv.h"
#include "jni/registry/registry.h"
#include "oxli.h"

namespace oxli::jni {

// Keeps the Java `Publisher` of a gateway publisher reachable while it is registered. Unlike with
// the other kinds, the Java handle is the gateway publisher itself: no native needs the record.
struct PublisherData {
  // Releases the reference and deletes the record. REQUIRES: no registry entry leads here.
  void retire(JNIEnv* env);

  ox_publisher_t* pub = nullptr;
  GlobalRef jpub;

  static Registry<ox_publisher_t, PublisherData> sPubMap GUARDED_BY(JEnv::spInstance->pubMutex);
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_PUBLISHER_H
