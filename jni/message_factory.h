#ifndef OXLI_JNI_MESSAGE_FACTORY_H
#define OXLI_JNI_MESSAGE_FACTORY_H

#include <jni.h>

#include "oxli.h"

namespace oxli::jni {

// Makes Java message objects from gateway records and fills them. Copies no payload: an object
// receives the addresses of the record and of the scheme description, and a direct buffer over the
// payload, all valid as long as the gateway keeps the record.
//
// Stateless. REQUIRES everywhere: the environment is open and no Java exception is pending. A
// failed step has written its line when a function returns. No local reference is left behind
// except the result of the Create functions.
class MessageFactory {
 public:
  MessageFactory() = delete;

  // The steps that make an object; its owner reports failures to keep it as the same step.
  static constexpr char kNewMessage[] = "CreateMessage new object";
  static constexpr char kNewDataMessage[] = "CreateDataMessage new object";

  // Returns a new object of the class of a service type, or a plain `Message` for any other type;
  // null if it cannot be made. The object is bound to the record but not filled: call Apply next.
  static jobject CreateMessage(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme);

  // The same for data messages, stream data and parse errors. `jscheme` is the Java `Scheme`, or
  // null. Returns null without a Java call for any other type.
  static jobject CreateDataMessage(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme,
                                   jobject jscheme);

  // Fills an object from the whole record. Returns false at the first failed step; the object keeps
  // what it has received.
  [[nodiscard]] static bool Apply(JNIEnv* env, jobject message, ox_msg_t* msg);

  // Fills an object from the next record of the same data key: everything but index, id, name and
  // reference message, which do not change for one key.
  [[nodiscard]] static bool ApplyDataPartial(JNIEnv* env, jobject message, ox_msg_t* msg);

  // Fills what only stream data has. If the record has no null map, the object keeps its own.
  [[nodiscard]] static bool ApplyStreamDataMessage(JNIEnv* env, jobject message,
                                                   ox_msg_streamdata_t* msg);
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_MESSAGE_FACTORY_H
