#include "jni/message_factory.h"

#include <cstdint>
#include <cstdio>
#include <limits>

#include "jni/base/failure.h"
#include "jni/base/memory.h"
#include "jni/base/references.h"
#include "jni/base/strings.h"
#include "jni/jenv/jenv.h"

namespace oxli::jni {

namespace {

// Calls a setter. Writes the line for `step` and returns false if it throws.
template <class Value>
[[nodiscard]] bool set(JNIEnv* env, jobject message, jmethodID setter, Value value,
                       const char* step) {
  env->CallVoidMethod(message, setter, value);
  return !reportIfPending(env, step);
}

struct Constructor {
  jclass cls;
  jmethodID id;
};

template <class Block>
Constructor blockConstructor(const Block& block) {
  return {block.cls, block.ctor};
}

Constructor serviceConstructor(const JEnv& classes, std::uint32_t type) {
  switch (type) {
    case OX_MSG_OPEN:
      return blockConstructor(classes.openMessage);
    case OX_MSG_CLOSE:
      return blockConstructor(classes.closeMessage);
    case OX_MSG_TIME:
      return blockConstructor(classes.timeMessage);
    case OX_MSG_TN_BEGIN:
      return blockConstructor(classes.tnBeginMessage);
    case OX_MSG_TN_COMMIT:
      return blockConstructor(classes.tnCommitMessage);
    case OX_MSG_ZRMQ_TIMEOUT:
      return blockConstructor(classes.zrMQTimeoutMessage);
    case OX_MSG_ZRREPL_LIFENUM:
      return blockConstructor(classes.zrReplLifeNumMessage);
    case OX_MSG_ZRREPL_CLEARDELETED:
      return blockConstructor(classes.zrReplClearDeletedMessage);
    case OX_MSG_ZRREPL_ONLINE:
      return blockConstructor(classes.zrReplOnlineMessage);
    case OX_MSG_ZRREPL_STATE:
      return blockConstructor(classes.zrReplStateMessage);
    default:
      return {nullptr, nullptr};
  }
}

Constructor dataConstructor(const JEnv& classes, std::uint32_t type) {
  switch (type) {
    case OX_MSG_DATA:
      return blockConstructor(classes.dataMessage);
    case OX_MSG_PARSEERR:
      return blockConstructor(classes.parseErrorMessage);
    case OX_MSG_STREAM_DATA:
      return blockConstructor(classes.streamDataMessage);
    default:
      return {nullptr, nullptr};
  }
}

// Returns what Java receives as an index: its low 32 bits.
jint javaIndex(std::uint64_t index) {
  return static_cast<jint>(index);
}

// Passes a buffer over the payload to the message, or null if the payload is empty. Writes the line
// for `step` and returns false if the payload is larger than a Java buffer can be, or if a call
// fails.
bool setPayload(JNIEnv* env, const JEnv& classes, jobject message, const ox_msg_t& msg,
                const char* step) {
  constexpr auto kMaxSize = std::size_t{std::numeric_limits<jint>::max()};
  const bool present = msg.data && msg.data_size != 0;
  const bool fits = present && msg.data_size <= kMaxSize;
  const LocalRef<jobject> buffer(
      env, fits ? env->NewDirectByteBuffer(msg.data, static_cast<jlong>(msg.data_size)) : nullptr);
  if (present && reportIfNull(buffer.get(), step)) return false;
  return set(env, message, classes.message.setData, buffer.get(), step);
}

bool applyClose(JNIEnv* env, const JEnv& classes, jobject message, const ox_msg_t& msg) {
  if (!msg.data) ox_log_error("msg->data is NULL for OX_MSG_CLOSE message\n");
  const jint reason = msg.data ? load<std::int32_t>(msg.data) : 0;
  return set(env, message, classes.closeMessage.setReason, reason, "Apply set reason");
}

bool applyTime(JNIEnv* env, const JEnv& classes, jobject message, const ox_msg_t& msg) {
  if (!msg.data) {
    std::fputs("ERROR. msg->data is NULL for OX_MSG_TIME message\n", stderr);
    return true;
  }
  const jlong time = load<std::int64_t>(msg.data);
  return set(env, message, classes.timeMessage.setTime, time, "Apply set time");
}

bool applyData(JNIEnv* env, const JEnv& classes, jobject message, const ox_msg_data_t& msg) {
  const auto& cls = classes.dataMessage;
  const LocalString name(env, msg.msg_name, "Apply set msg_name");
  if (!name.ok()) return false;
  const LocalString address(env, msg.addr, "Apply set address");
  if (!address.ok()) return false;
  const jobject noRefMessage = nullptr;
  return set(env, message, cls.setMsgIndex, javaIndex(msg.msg_index), "Apply set msg_index") &&
         set(env, message, cls.setMsgId, static_cast<jint>(msg.msg_id), "Apply set msg_id") &&
         set(env, message, cls.setMsgName, name.get(), "Apply set msg_name") &&
         set(env, message, cls.setUserId, static_cast<jint>(msg.user_id), "Apply set user_id") &&
         set(env, message, cls.setAddress, address.get(), "Apply set address") &&
         set(env, message, cls.setRefMessage, noRefMessage, "Apply set ref message");
}

bool applyParseError(JNIEnv* env, const JEnv& classes, jobject message, const ox_msg_data_t& msg) {
  if (!applyData(env, classes, message, msg)) return false;
  const void* const data = msg.head.data;
  if (!data) ox_log_error("msg->data is NULL for OX_MSG_PARSEERR message\n");
  const jint code = data ? load<std::int32_t>(data) : 0;
  return set(env, message, classes.parseErrorMessage.setError, code, "Apply set error");
}

bool applyStreamData(JNIEnv* env, const JEnv& classes, jobject message, ox_msg_streamdata_t& msg) {
  const auto& cls = classes.streamDataMessage;
  const LocalString name(env, msg.msg_name, "Apply set name");
  if (!name.ok()) return false;
  return set(env, message, cls.setMsgIndex, javaIndex(msg.msg_index), "Apply set msg index") &&
         set(env, message, cls.setMsgId, static_cast<jint>(msg.msg_id), "Apply set msg id") &&
         set(env, message, cls.setMsgName, name.get(), "Apply set name") &&
         MessageFactory::ApplyStreamDataMessage(env, message, &msg);
}

bool applyLifeNumber(JNIEnv* env, const JEnv& classes, jobject message, const ox_msg_t& msg) {
  if (!msg.data) {
    ox_log_error("msg->data is NULL for OX_MSG_ZRREPL_LIFENUM message\n");
    return true;
  }
  const auto& cls = classes.zrReplLifeNumMessage;
  const auto data = load<ox_data_lifenum_t>(msg.data);
  return set(env, message, cls.setLifenum, jlong{data.life_number}, "Apply set lifenum") &&
         set(env, message, cls.setFlags, jlong{data.flags}, "Apply set flags");
}

bool applyClearDeleted(JNIEnv* env, const JEnv& classes, jobject message, const ox_msg_t& msg) {
  if (!msg.data) {
    ox_log_error("msg->data is NULL for OX_MSG_ZRREPL_CLEARDELETED message\n");
    return true;
  }
  const auto& cls = classes.zrReplClearDeletedMessage;
  const auto data = load<ox_data_cleardeleted_t>(msg.data);
  const jlong revision = data.table_rev;
  return set(env, message, cls.setTableIdx, static_cast<jint>(data.table_idx),
             "Apply set table idx") &&
         set(env, message, cls.setTableRev, revision, "Apply set table rev");
}

bool applyState(JNIEnv* env, const JEnv& classes, jobject message, const ox_msg_t& msg) {
  constexpr char kSetState[] = "Apply set repl state";
  const LocalString state(env, static_cast<const char*>(msg.data), kSetState);
  if (!state.ok()) return false;
  return set(env, message, classes.zrReplStateMessage.setReplState, state.get(), kSetState);
}

bool applyByType(JNIEnv* env, const JEnv& classes, jobject message, ox_msg_t* msg) {
  switch (msg->type) {
    case OX_MSG_CLOSE:
      return applyClose(env, classes, message, *msg);
    case OX_MSG_TIME:
      return applyTime(env, classes, message, *msg);
    case OX_MSG_DATA:
      return applyData(env, classes, message, *reinterpret_cast<ox_msg_data_t*>(msg));
    case OX_MSG_PARSEERR:
      return applyParseError(env, classes, message, *reinterpret_cast<ox_msg_data_t*>(msg));
    case OX_MSG_STREAM_DATA:
      return applyStreamData(env, classes, message, *reinterpret_cast<ox_msg_streamdata_t*>(msg));
    case OX_MSG_ZRMQ_TIMEOUT:
      return set(env, message, classes.zrMQTimeoutMessage.setUserId,
                 static_cast<jint>(reinterpret_cast<ox_msg_data_t*>(msg)->user_id),
                 "Apply set user id");
    case OX_MSG_ZRREPL_LIFENUM:
      return applyLifeNumber(env, classes, message, *msg);
    case OX_MSG_ZRREPL_CLEARDELETED:
      return applyClearDeleted(env, classes, message, *msg);
    case OX_MSG_ZRREPL_STATE:
      return applyState(env, classes, message, *msg);
    default:
      return true;
  }
}

bool applyDataPartial(JNIEnv* env, const JEnv& classes, jobject message, const ox_msg_data_t& msg) {
  constexpr char kSetAddress[] = "ApplyDataPartial set address";
  const auto& cls = classes.dataMessage;
  const LocalString address(env, msg.addr, kSetAddress);
  if (!address.ok()) return false;
  return set(env, message, cls.setUserId, static_cast<jint>(msg.user_id),
             "ApplyDataPartial set user id") &&
         set(env, message, cls.setAddress, address.get(), kSetAddress);
}

bool applyPartialByType(JNIEnv* env, const JEnv& classes, jobject message, ox_msg_t* msg) {
  switch (msg->type) {
    case OX_MSG_DATA:
      return applyDataPartial(env, classes, message, *reinterpret_cast<ox_msg_data_t*>(msg));
    case OX_MSG_STREAM_DATA:
      return MessageFactory::ApplyStreamDataMessage(env, message,
                                                    reinterpret_cast<ox_msg_streamdata_t*>(msg));
    default:
      return true;
  }
}

bool applyNulls(JNIEnv* env, const JEnv& classes, jobject message, const ox_msg_streamdata_t& msg) {
  constexpr char kSetNulls[] = "ApplyStreamDataMessage set nulls";
  const auto& cls = classes.streamDataMessage;
  const auto length = static_cast<jsize>(msg.num_nulls);
  LocalRef<jbooleanArray> nulls(
      env, static_cast<jbooleanArray>(env->CallObjectMethod(message, cls.getNulls)));
  if (exceptionPending(env)) return false;
  if (!nulls.get()) {
    nulls.set(env->NewBooleanArray(length));
    if (reportIfNull(nulls.get(), kSetNulls)) return false;
    if (!set(env, message, cls.setNulls, nulls.get(), kSetNulls)) return false;
  }
  env->SetBooleanArrayRegion(nulls.get(), 0, length, msg.nulls);
  return !exceptionPending(env);
}

}  // namespace

jobject MessageFactory::CreateMessage(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme) {
  const JEnv& classes = *JEnv::spInstance;
  const Constructor service = serviceConstructor(classes, msg->type);
  LocalRef<jobject> message(env, service.cls
                                     ? env->NewObject(service.cls, service.id)
                                     : env->NewObject(classes.message.cls, classes.message.ctor,
                                                      static_cast<jint>(msg->type)));
  if (reportIfNotMade(env, message.get(), kNewMessage)) return nullptr;
  const auto& cls = classes.message;
  if (!set(env, message.get(), cls.setRef, toHandle(msg), "CreateMessage set ref") ||
      !set(env, message.get(), cls.setSchemeRef, toHandle(scheme),
           "CreateMessage set scheme ref")) {
    return nullptr;
  }
  return message.detach();
}

jobject MessageFactory::CreateDataMessage(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme,
                                          jobject jscheme) {
  const JEnv& classes = *JEnv::spInstance;
  const Constructor data = dataConstructor(classes, msg->type);
  if (!data.cls) return nullptr;

  // The records of all three types have index, id and name at the same offsets.
  const auto& record = *reinterpret_cast<const ox_msg_data_t*>(msg);
  const LocalString name(env, record.msg_name, kNewDataMessage);
  if (!name.ok()) return nullptr;
  LocalRef<jobject> message(env, env->NewObject(data.cls, data.id, static_cast<jint>(record.msg_id),
                                                javaIndex(record.msg_index), name.get(), jscheme));
  if (reportIfNotMade(env, message.get(), kNewDataMessage)) return nullptr;
  const auto& cls = classes.message;
  if (!set(env, message.get(), cls.setRef, toHandle(msg), "CreateDataMessage set ref") ||
      !set(env, message.get(), cls.setSchemeRef, toHandle(scheme),
           "CreateDataMessage set scheme ref")) {
    return nullptr;
  }
  return message.detach();
}

bool MessageFactory::Apply(JNIEnv* env, jobject message, ox_msg_t* msg) {
  const JEnv& classes = *JEnv::spInstance;
  return setPayload(env, classes, message, *msg, "Apply set data") &&
         applyByType(env, classes, message, msg) &&
         set(env, message, classes.message.setRef, toHandle(msg), "Apply set ref");
}

bool MessageFactory::ApplyDataPartial(JNIEnv* env, jobject message, ox_msg_t* msg) {
  const JEnv& classes = *JEnv::spInstance;
  return setPayload(env, classes, message, *msg, "ApplyDataPartial set data") &&
         applyPartialByType(env, classes, message, msg) &&
         set(env, message, classes.message.setRef, toHandle(msg), "ApplyDataPartial set ref");
}

bool MessageFactory::ApplyStreamDataMessage(JNIEnv* env, jobject message,
                                            ox_msg_streamdata_t* msg) {
  const JEnv& classes = *JEnv::spInstance;
  const auto& cls = classes.streamDataMessage;
  if (msg->nulls && !applyNulls(env, classes, message, *msg)) return false;
  const jlong revision = msg->rev;
  return set(env, message, cls.setRev, revision, "ApplyStreamDataMessage set rev") &&
         set(env, message, cls.setUserId, static_cast<jlong>(msg->user_id),
             "ApplyStreamDataMessage set user id");
}

}  // namespace oxli::jni
