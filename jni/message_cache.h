#ifndef OXLI_JNI_MESSAGE_CACHE_H
#define OXLI_JNI_MESSAGE_CACHE_H

#include <jni.h>

#include <cstdint>
#include <map>

#include "jni/base/references.h"
#include "oxli.h"

namespace oxli::jni {

// The Java message objects of one listener: one for each kind of message, handed out again and
// refilled for every later message of that kind. Grows with the kinds seen and evicts none.
//
// Not locked: get() runs on the thread that delivers, clear() only while no message of the listener
// is being delivered on another thread. REQUIRES: clear() before destruction, which deletes no
// reference.
class MessageCache {
 public:
  // The object for this record, filled: lent until clear(). When filling it left a Java exception
  // pending, it is returned as far as it was filled. Null when it could not be made, or not filled
  // and no exception is pending. `scheme` and `jscheme` may be null.
  jobject get(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme, jobject jscheme);

  // Deletes every reference.
  void clear(JNIEnv* env);

 private:
  // Both kinds of data may arrive under one key, and an object of one class must not be filled
  // through the other's methods.
  struct DataObjects {
    HeldRef data;
    HeldRef streamData;

    HeldRef& of(std::uint32_t type) { return type == OX_MSG_STREAM_DATA ? streamData : data; }
    void drop(JNIEnv* env);
  };

  HeldRef& dataSlot(const ox_msg_data_t& msg);

  // By type code: everything but data and stream data.
  std::map<int, HeldRef> typeObjects;
  // By data key: the index, else the id.
  std::map<std::uint64_t, DataObjects> dataObjects;
  // Data that has neither.
  DataObjects unkeyedObject;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_MESSAGE_CACHE_H
