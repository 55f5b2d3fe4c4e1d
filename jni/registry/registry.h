// Registries map gateway handles to records. This header is shared by all kinds of objects and
// depends on no record type.
//
// An entry owns its record, unless the header of the record type states otherwise. Code that
// removes an entry also retires the record. retire() releases the references of the record, and
// then the registry's pin or, for a record type without pins, the memory.
#ifndef OXLI_JNI_REGISTRY_REGISTRY_H
#define OXLI_JNI_REGISTRY_REGISTRY_H

#include <jni.h>

#include <map>
#include <memory>
#include <utility>

#include "jni/base/thread_annotations.h"

namespace oxli::jni {

// REQUIRES: every access is made while the mutex of the registry is locked.
template <class Handle, class Record>
using Registry = std::map<Handle*, Record*>;

// Owns a new record and the memory of its registry entry, so that registering cannot fail once the
// gateway object exists. Retires the record at the end of the scope if it has not been released.
template <class Handle, class Record>
class NewRecord {
 public:
  explicit NewRecord(JNIEnv* env) : env_(env) {
    auto record = std::make_unique<Record>();
    Registry<Handle, Record> scratch;
    scratch.emplace(nullptr, record.get());
    entry_ = scratch.extract(scratch.begin());
    record_ = record.release();
  }
  NewRecord(const NewRecord&) = delete;
  NewRecord& operator=(const NewRecord&) = delete;
  // REQUIRES: the lock that retire() of the record requires.
  ~NewRecord() NO_THREAD_SAFETY_ANALYSIS {
    if (record_) record_->retire(env_);
  }

  Record* operator->() const { return record_; }
  Record* get() const { return record_; }
  // Transfers the record to the caller.
  Record* release() { return std::exchange(record_, nullptr); }

  // Inserts the entry, unless the handle already has one. Call once.
  void insertInto(Registry<Handle, Record>& registry, Handle* handle) {
    entry_.key() = handle;
    registry.insert(std::move(entry_));
  }

  // Inserts the entry, or replaces the record of an existing one. Returns the replaced record, or
  // null. Call once.
  Record* replaceIn(Registry<Handle, Record>& registry, Handle* handle) {
    entry_.key() = handle;
    const auto inserted = registry.insert(std::move(entry_));
    if (inserted.inserted) return nullptr;
    return std::exchange(inserted.position->second, inserted.node.mapped());
  }

 private:
  JNIEnv* env_;
  Record* record_;
  typename Registry<Handle, Record>::node_type entry_;
};

// Returns the handle's record, or null.
template <class Handle, class Record>
Record* find(const Registry<Handle, Record>& registry, Handle* handle) {
  const auto entry = registry.find(handle);
  return entry == registry.end() ? nullptr : entry->second;
}

// Removes the handle's entry. Returns its record, or null.
template <class Handle, class Record>
Record* remove(Registry<Handle, Record>& registry, Handle* handle) {
  const auto entry = registry.find(handle);
  if (entry == registry.end()) return nullptr;
  Record* const record = entry->second;
  registry.erase(entry);
  return record;
}

}  // namespace oxli::jni

#endif  // OXLI_JNI_REGISTRY_REGISTRY_H
