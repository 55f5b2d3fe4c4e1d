#ifndef OXLI_JNI_MESSAGE_CACHE_H
#define OXLI_JNI_MESSAGE_CACHE_H

#include <jni.h>

#include <cstdint>
#include <map>
#include <vector>

#include "jni/base/references.h"
#include "oxli.h"

namespace oxli::jni {

// A message object, and whether it is filled.
struct CachedMessage {
  jobject object = nullptr;  // owned by the cache
  bool complete = false;     // filled, and no exception is pending
};

// Maps data keys to the message objects of one Java class. The data key of a message is its index,
// or its id if it has no index.
class DataObjects {
 public:
  // Returns the object for the key of the record, or null.
  GlobalRef* find(const ox_msg_data_t& msg);
  // Returns a new null reference for the key of the record. REQUIRES: find(msg) returns null.
  GlobalRef& add(const ox_msg_data_t& msg);
  // Undoes add().
  void remove(const ox_msg_data_t& msg);
  void clear(JNIEnv* env);

 private:
  std::map<std::uint64_t, GlobalRef> objects_;
  // The entries of `objects_` with small keys, by key. Most keys are small: indexes count from 0.
  std::vector<GlobalRef*> small_;
  GlobalRef unkeyedObject;  // for messages that have neither index nor id
};

// Owns the Java message objects of one listener, one for each kind of message, and fills that
// object anew for every message of the kind. Grows with the number of kinds and evicts no object.
//
// Not locked: get() runs on the delivering thread, clear() only while no message of the listener is
// being delivered on another thread. REQUIRES: clear() before destruction, which deletes no
// reference.
class MessageCache {
 public:
  // Returns the object for the kind of the record, filled from the record. The cache owns the
  // object until clear(). Returns a null object if it cannot be made. `scheme` and `jscheme` may be
  // null. REQUIRES: no exception is pending.
  CachedMessage get(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme, jobject jscheme);

  // Releases every reference.
  void clear(JNIEnv* env);

 private:
  CachedMessage getData(JNIEnv* env, DataObjects& objects, ox_msg_t* msg, ox_scheme_desc_t* scheme,
                        jobject jscheme);
  CachedMessage getOther(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme, jobject jscheme);

  // The objects by type code, for all types but data messages and stream data.
  std::map<int, GlobalRef> typeObjects;
  // Separate, because a data message and stream data may have the same key, and an object of one
  // class must not be filled through the methods of the other.
  DataObjects dataObjects;
  DataObjects streamDataObjects;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_MESSAGE_CACHE_H
