#include "jni/message_cache.h"

#include "jni/message_factory.h"

namespace oxli::jni {

namespace {

// Keys below this limit are found without a search. It bounds the table of small keys to 512 KiB.
constexpr std::uint64_t kSmallKeys = 65536;

bool isUnkeyed(const ox_msg_data_t& msg) {
  return msg.msg_index == UNKEYED_INDEX && msg.msg_id == UNKEYED_ID;
}

std::uint64_t dataKey(const ox_msg_data_t& msg) {
  return msg.msg_index != UNKEYED_INDEX ? msg.msg_index : msg.msg_id;
}

}  // namespace

GlobalRef* DataObjects::find(const ox_msg_data_t& msg) {
  if (isUnkeyed(msg)) return unkeyedObject.get() ? &unkeyedObject : nullptr;
  const std::uint64_t key = dataKey(msg);
  if (key < small_.size()) return small_[key];
  if (key < kSmallKeys) return nullptr;
  const auto found = objects_.find(key);
  return found == objects_.end() ? nullptr : &found->second;
}

GlobalRef& DataObjects::add(const ox_msg_data_t& msg) {
  if (isUnkeyed(msg)) return unkeyedObject;
  const std::uint64_t key = dataKey(msg);
  if (key >= kSmallKeys) return objects_[key];
  if (key >= small_.size()) small_.resize(key + 1);
  return *(small_[key] = &objects_[key]);
}

void DataObjects::remove(const ox_msg_data_t& msg) {
  if (isUnkeyed(msg)) return;
  const std::uint64_t key = dataKey(msg);
  if (key < small_.size()) small_[key] = nullptr;
  objects_.erase(key);
}

void DataObjects::clear(JNIEnv* env) {
  for (auto& entry : objects_) entry.second.release(env);
  small_.clear();
  objects_.clear();
  unkeyedObject.release(env);
}

CachedMessage MessageCache::getData(JNIEnv* env, DataObjects& objects, ox_msg_t* msg,
                                    ox_scheme_desc_t* scheme, jobject jscheme) {
  // The records of data messages and stream data have index and id at the same offsets.
  const auto& data = *reinterpret_cast<const ox_msg_data_t*>(msg);
  if (const GlobalRef* const known = objects.find(data)) {
    return {known->get(), MessageFactory::ApplyDataPartial(env, known->get(), msg)};
  }
  const LocalRef<jobject> created(env,
                                  MessageFactory::CreateDataMessage(env, msg, scheme, jscheme));
  if (!created.get()) return {};
  GlobalRef& added = objects.add(data);
  if (!added.acquire(env, created.get(), MessageFactory::kNewDataMessage)) {
    objects.remove(data);
    return {};
  }
  return {added.get(), MessageFactory::Apply(env, added.get(), msg)};
}

CachedMessage MessageCache::getOther(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme,
                                     jobject jscheme) {
  const int type = static_cast<int>(msg->type);
  const auto known = typeObjects.find(type);
  if (known != typeObjects.end()) {
    const jobject object = known->second.get();
    return {object, MessageFactory::Apply(env, object, msg)};
  }
  const bool isParseError = msg->type == OX_MSG_PARSEERR;
  const LocalRef<jobject> created(
      env, isParseError ? MessageFactory::CreateDataMessage(env, msg, scheme, jscheme)
                        : MessageFactory::CreateMessage(env, msg, scheme));
  if (!created.get()) return {};
  GlobalRef& added = typeObjects[type];
  if (!added.acquire(
          env, created.get(),
          isParseError ? MessageFactory::kNewDataMessage : MessageFactory::kNewMessage)) {
    typeObjects.erase(type);
    return {};
  }
  return {added.get(), MessageFactory::Apply(env, added.get(), msg)};
}

CachedMessage MessageCache::get(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme,
                                jobject jscheme) {
  switch (msg->type) {
    case OX_MSG_DATA:
      return getData(env, dataObjects, msg, scheme, jscheme);
    case OX_MSG_STREAM_DATA:
      return getData(env, streamDataObjects, msg, scheme, jscheme);
    default:
      return getOther(env, msg, scheme, jscheme);
  }
}

void MessageCache::clear(JNIEnv* env) {
  dataObjects.clear(env);
  streamDataObjects.clear(env);
  for (auto& entry : typeObjects) entry.second.release(env);
  typeObjects.clear();
}

}  // namespace oxli::jni
