#include "jni/message_cache.h"

#include "jni/base/failure.h"
#include "jni/message_factory.h"

namespace oxli::jni {

namespace {

// What get() returns after filling `message`. A failure that left an exception pending shows by the
// exception; without one null has to say it.
jobject filled(JNIEnv* env, bool applied, jobject message) {
  return applied || exceptionPending(env) ? message : nullptr;
}

// Keeps a new object in its slot and fills it.
jobject keep(JNIEnv* env, HeldRef& slot, jobject created, ox_msg_t* msg, const char* step) {
  const LocalRef<jobject> message(env, created);
  if (!created) return nullptr;
  if (!slot.hold(env, created, step)) return nullptr;
  return filled(env, MessageFactory::Apply(env, slot.get(), msg), slot.get());
}

}  // namespace

void MessageCache::DataObjects::drop(JNIEnv* env) {
  data.drop(env);
  streamData.drop(env);
}

HeldRef& MessageCache::dataSlot(const ox_msg_data_t& msg) {
  if (msg.msg_index != UNKEYED_INDEX) return dataObjects[msg.msg_index].of(msg.head.type);
  if (msg.msg_id != UNKEYED_ID) return dataObjects[msg.msg_id].of(msg.head.type);
  return unkeyedObject.of(msg.head.type);
}

jobject MessageCache::get(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme, jobject jscheme) {
  if (msg->type == OX_MSG_DATA || msg->type == OX_MSG_STREAM_DATA) {
    // Both kinds have index and id at the same place.
    HeldRef& slot = dataSlot(*reinterpret_cast<const ox_msg_data_t*>(msg));
    if (slot.get()) {
      return filled(env, MessageFactory::ApplyDataPartial(env, slot.get(), msg), slot.get());
    }
    return keep(env, slot, MessageFactory::CreateDataMessage(env, msg, scheme, jscheme), msg,
                MessageFactory::kNewDataMessage);
  }

  HeldRef& slot = typeObjects[static_cast<int>(msg->type)];
  if (slot.get()) return filled(env, MessageFactory::Apply(env, slot.get(), msg), slot.get());
  if (msg->type == OX_MSG_PARSEERR) {
    return keep(env, slot, MessageFactory::CreateDataMessage(env, msg, scheme, jscheme), msg,
                MessageFactory::kNewDataMessage);
  }
  return keep(env, slot, MessageFactory::CreateMessage(env, msg, scheme), msg,
              MessageFactory::kNewMessage);
}

void MessageCache::clear(JNIEnv* env) {
  for (auto& entry : dataObjects) entry.second.drop(env);
  dataObjects.clear();
  for (auto& entry : typeObjects) entry.second.drop(env);
  unkeyedObject.drop(env);
  typeObjects.clear();
}

}  // namespace oxli::jni
