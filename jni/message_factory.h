#ifndef OXLI_JNI_MESSAGE_FACTORY_H
#define OXLI_JNI_MESSAGE_FACTORY_H

#include <jni.h>

#include "oxli.h"

namespace oxli::jni {

// Java message objects out of gateway records. No payload is copied: an object gets the addresses
// of the record and of the scheme description and a direct buffer over the payload, all of them
// valid only as long as the gateway keeps the record.
//
// Stateless; REQUIRES everywhere: the environment is open and no Java exception is pending. Leaves
// no local reference behind but the one that a Create operation returns. A failed step has written
// its line when these return.
class MessageFactory {
 public:
  MessageFactory() = delete;

  // The steps that make an object, for whoever keeps it.
  static constexpr char kNewMessage[] = "CreateMessage new object";
  static constexpr char kNewDataMessage[] = "CreateDataMessage new object";

  // A new object of the class of a service type, or a plain `Message` for any other type, bound to
  // the record but not filled from it: Apply does that. A local reference; null when it failed.
  static jobject CreateMessage(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme);

  // The same for data, stream data and parse errors. `jscheme`: the Java `Scheme`, or null. Null
  // without a Java call for any other type.
  static jobject CreateDataMessage(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme,
                                   jobject jscheme);

  // Fills an object from the whole record. False at the first step that failed: the object keeps
  // what it had received until then.
  static bool Apply(JNIEnv* env, jobject message, ox_msg_t* msg);

  // Refreshes an object from the next record of the same data key: everything but index, id, name
  // and reference message, which a key fixes.
  static bool ApplyDataPartial(JNIEnv* env, jobject message, ox_msg_t* msg);

  // The part of both that stream data has of its own. Without a null map in the record the object
  // keeps the one it has.
  static bool ApplyStreamDataMessage(JNIEnv* env, jobject message, ox_msg_streamdata_t* msg);
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_MESSAGE_FACTORY_H
