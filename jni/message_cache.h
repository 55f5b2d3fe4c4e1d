#ifndef OXLI_JNI_MESSAGE_CACHE_H
#define OXLI_JNI_MESSAGE_CACHE_H

#include <jni.h>

#include <cstdint>
#include <map>
#include <vector>

#include "jni/base/references.h"
#include "oxli.h"

namespace oxli::jni {

// A message object and how far it has been filled.
struct CachedMessage {
  jobject object = nullptr;  // owned by the cache
  bool complete = false;     // filled, and no exception is pending
};

// The message objects of one Java class by data key: the index of a message, else its id.
class DataObjects {
 public:
  // Returns the object of the record's key, or null.
  GlobalRef* find(const ox_msg_data_t& msg);
  // Returns a new, empty reference for the record's key. REQUIRES: find(msg) returns null.
  GlobalRef& add(const ox_msg_data_t& msg);
  // Undoes add().
  void remove(const ox_msg_data_t& msg);
  void clear(JNIEnv* env);

 private:
  std::map<std::uint64_t, GlobalRef> objects_;
  // The entries of `objects_` by key, as far as keys are small: indexes count from 0.
  std::vector<GlobalRef*> small_;
  GlobalRef unkeyedObject;  // for messages that have neither index nor id
};

// The Java message objects of one listener: one for each kind of message, filled anew for every
// message of its kind. Grows with the kinds seen and evicts none.
//
// Not locked: get() runs on the delivering thread, clear() only while no message of the listener is
// being delivered on another thread. REQUIRES: clear() before destruction, which deletes no
// reference.
class MessageCache {
 public:
  // Returns the object of the record's kind, filled from the record. The cache owns the object
  // until clear(). Returns no object if it cannot be made. `scheme` and `jscheme` may be null.
  // REQUIRES: no exception is pending.
  CachedMessage get(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme, jobject jscheme);

  // Deletes every reference.
  void clear(JNIEnv* env);

 private:
  CachedMessage getData(JNIEnv* env, DataObjects& objects, ox_msg_t* msg, ox_scheme_desc_t* scheme,
                        jobject jscheme);
  CachedMessage getOther(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme, jobject jscheme);

  // By type code: everything but data messages and stream data.
  std::map<int, GlobalRef> typeObjects;
  // Apart, because both kinds may arrive under one key, and an object of one class must not be
  // filled through the methods of the other.
  DataObjects dataObjects;
  DataObjects streamDataObjects;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_MESSAGE_CACHE_H
