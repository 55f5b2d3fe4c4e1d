#ifndef OXLI_JNI_MESSAGE_FACTORY_H
#define OXLI_JNI_MESSAGE_FACTORY_H

#include <jni.h>

#include "oxli.h"

namespace oxli::jni {

// Makes Java message objects from gateway records and fills them. Copies no payload: an object
// receives the addresses of the record and of the scheme description, and a direct buffer over the
// payload. These are valid as long as the record.
//
// Stateless. REQUIRES for every function: the environment is open and no Java exception is pending.
// A function that fails has written the line of the failed step; only getNulls of stream data, and
// writing into its array, fail without a line. The Create functions return a new local reference;
// no other local reference remains.
class MessageFactory {
 public:
  MessageFactory() = delete;

  // The steps that create an object. Callers use these names, too, for failures directly before and
  // after its creation.
  static constexpr char kNewMessage[] = "CreateMessage new object";
  static constexpr char kNewDataMessage[] = "CreateDataMessage new object";

  // Returns a new object for a record that is no data message, stream data or parse error: of the
  // class of its type, or a plain `Message` if the type has no class. Returns null if the object
  // cannot be made. The object receives the addresses of record and scheme description only: call
  // Apply next.
  static jobject CreateMessage(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme);

  // Returns a new object for a data message, stream data or a parse error, like CreateMessage.
  // `jscheme` is the Java `Scheme`, or null. Returns null without a Java call for any other type.
  static jobject CreateDataMessage(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme,
                                   jobject jscheme);

  // Fills an object from the record, except that the reference message of a data message or parse
  // error becomes null. Returns false at the first failed step; the fields set before it remain
  // set.
  [[nodiscard]] static bool Apply(JNIEnv* env, jobject message, ox_msg_t* msg);

  // Fills an object from a later record with the same data key. Leaves index, id, name and
  // reference message as Apply has set them.
  [[nodiscard]] static bool ApplyDataPartial(JNIEnv* env, jobject message, ox_msg_t* msg);

  // Fills revision, user id and null map from stream data. If the record has no null map, that of
  // the object does not change.
  [[nodiscard]] static bool ApplyStreamDataMessage(JNIEnv* env, jobject message,
                                                   ox_msg_streamdata_t* msg);
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_MESSAGE_FACTORY_H
