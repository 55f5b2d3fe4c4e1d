#ifndef OXLI_JNI_OUTGOING_MESSAGE_H
#define OXLI_JNI_OUTGOING_MESSAGE_H

#include <jni.h>

#include <cstdint>

#include "oxli.h"

namespace oxli::jni {

// What one exchange of a message's Java-side fields changed in its record, and what it borrowed
// from the virtual machine. Zero-filled before replaceMsgFields; handed to restoreMsgFields on the
// same thread before the native returns.
struct SavedMsgFields {
  const char* addrText = nullptr;
  const char* oldAddr = nullptr;
  jstring addrString = nullptr;
  ox_msg_data_t* oldRefMsg = nullptr;
  jboolean* nullsElements = nullptr;
  const std::uint8_t* oldNulls = nullptr;
  jbooleanArray nullsArray = nullptr;

  // An earlier value may be null itself.
  bool addrReplaced = false;
  bool refMsgReplaced = false;
  bool nullsReplaced = false;
  // OX_ERR_OK, or why the record must not be used as it is: the Java null map is shorter than the
  // record's, or the virtual machine had no memory to lend and no exception says so.
  int refusal = OX_ERR_OK;
};

}  // namespace oxli::jni

extern "C" {

// Copies the fields that live in the Java message into the record: user id, address and reference
// message of data; revision, user id and null map of stream data. A failed step leaves its Java
// exception pending, and what was replaced until then for restoreMsgFields. With a `refusal` in
// `saved` the record is only to be restored.
JNIEXPORT void replaceMsgFields(JNIEnv* env, ox_msg_t* msg, jobject message,
                                oxli::jni::SavedMsgFields* saved);

// Puts back every pointer that was replaced and gives back what was borrowed. User ids and the
// revision stay. Legal with an exception pending.
JNIEXPORT void restoreMsgFields(JNIEnv* env, ox_msg_t* msg, oxli::jni::SavedMsgFields* saved);
}

#endif  // OXLI_JNI_OUTGOING_MESSAGE_H
