// The registries: from a gateway handle to the record that binds it to its Java object. What all
// kinds share stands here, out-parameters included; it knows no record type.
//
// An entry owns its record, unless the record's own header says otherwise. A record that is taken
// out is retired by whoever took it: references dropped, then the memory let go.
#ifndef OXLI_JNI_REGISTRY_REGISTRY_H
#define OXLI_JNI_REGISTRY_REGISTRY_H

#include <jni.h>

#include <cstdint>
#include <map>
#include <utility>

#include "jni/jenv/jenv.h"

namespace oxli::jni {

// Read and written only while the registry's mutex is held.
template <class Handle, class Record>
using Registry = std::map<Handle*, Record*>;

// An entry allocated ahead, for one use, so that registering cannot fail once the gateway's object
// exists.
template <class Handle, class Record>
class Reservation {
 public:
  explicit Reservation(Record* record) {
    Registry<Handle, Record> scratch;
    scratch.emplace(nullptr, record);
    node_ = scratch.extract(scratch.begin());
  }

  // An entry that is there already stays.
  void insertInto(Registry<Handle, Record>& registry, Handle* handle) {
    node_.key() = handle;
    registry.insert(std::move(node_));
  }

  // Returns the record that was replaced, or null.
  Record* replaceIn(Registry<Handle, Record>& registry, Handle* handle) {
    node_.key() = handle;
    const auto entry = registry.insert(std::move(node_));
    return entry.inserted ? nullptr : std::exchange(entry.position->second, entry.node.mapped());
  }

 private:
  typename Registry<Handle, Record>::node_type node_;
};

// The handle's record, or null.
template <class Handle, class Record>
Record* lookUp(const Registry<Handle, Record>& registry, Handle* handle) {
  const auto entry = registry.find(handle);
  return entry == registry.end() ? nullptr : entry->second;
}

// Removes the handle's entry and returns its record, or null.
template <class Handle, class Record>
Record* take(Registry<Handle, Record>& registry, Handle* handle) {
  const auto entry = registry.find(handle);
  if (entry == registry.end()) return nullptr;
  Record* const record = entry->second;
  registry.erase(entry);
  return record;
}

// Out-parameters: OX_ERR_OK, or OX_ERR_INTERNAL after the line for `step`.
[[nodiscard]] jint setObjRef(JNIEnv* env, const JEnv& cache, jobject objRef, jlong value,
                             const char* step);
[[nodiscard]] jint setIntRef(JNIEnv* env, const JEnv& cache, jobject intRef, std::int32_t value,
                             const char* step);

}  // namespace oxli::jni

#endif  // OXLI_JNI_REGISTRY_REGISTRY_H
