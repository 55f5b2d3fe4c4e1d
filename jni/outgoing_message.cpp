#include <cstdint>
#include <string>

#include "jni/base/failure.h"
#include "jni/base/memory.h"
#include "jni/base/references.h"
#include "jni/base/strings.h"
#include "jni/jenv/with_classes.h"
#include "jni/message_factory.h"
#include "jni/oxjni.h"
#include "org_quendel_oxli_impl_OxliImpl.h"

namespace oxli::jni {

namespace {

// Writes the line for `step` and returns true if memory could not be acquired from the virtual
// machine. Refuses the record if no exception is pending then.
bool refuseIfNull(JNIEnv* env, const void* acquired, const char* step, SavedMsgFields& saved) {
  if (!reportIfNull(acquired, step)) return false;
  if (!exceptionPending(env)) saved.refusal = OX_ERR_INTERNAL;
  return true;
}

void replaceDataFields(JNIEnv* env, const JEnv& classes, ox_msg_data_t& msg, jobject message,
                       SavedMsgFields& saved) {
  constexpr char kGetAddress[] = "replaceMsgFields getAddress";
  const auto& cls = classes.dataMessage;
  const jint userId = env->CallIntMethod(message, cls.getUserId);
  if (reportIfPending(env, "replaceMsgFields getUserId")) return;
  msg.user_id = static_cast<std::uint32_t>(userId);

  LocalRef<jstring> address(env,
                            static_cast<jstring>(env->CallObjectMethod(message, cls.getAddress)));
  if (reportIfPending(env, kGetAddress)) return;
  if (address.get()) {
    const char* const chars = env->GetStringUTFChars(address.get(), nullptr);
    if (refuseIfNull(env, chars, kGetAddress, saved)) return;
    saved.addrText = chars;
    saved.addrString = address.detach();
    saved.oldAddr = msg.addr;
    saved.addrReplaced = JNI_TRUE;
    msg.addr = chars;
  }

  const LocalRef<jobject> reference(env, env->CallObjectMethod(message, cls.getRefMessage));
  if (reportIfPending(env, "replaceMsgFields getRefMessage")) return;
  if (reference.get()) {
    const jlong record = env->CallLongMethod(reference.get(), classes.message.getRef);
    if (reportIfPending(env, "replaceMsgFields getRef")) return;
    saved.oldRefMsg = msg.ref_msg;
    saved.refMsgReplaced = JNI_TRUE;
    msg.ref_msg = fromHandle<ox_msg_data_t>(record);
  }
}

void replaceStreamFields(JNIEnv* env, const JEnv& classes, ox_msg_streamdata_t& msg,
                         jobject message, SavedMsgFields& saved) {
  constexpr char kGetNulls[] = "replaceMsgFields get nulls";
  const auto& cls = classes.streamDataMessage;
  const std::int64_t oldRev = msg.rev;
  const std::uint64_t oldUserId = msg.user_id;
  msg.rev = env->CallLongMethod(message, cls.getRev);
  if (reportIfPending(env, "replaceMsgFields getRef streamdata")) return;
  msg.user_id = static_cast<std::uint64_t>(env->CallLongMethod(message, cls.getUserId));
  if (reportIfPending(env, "replaceMsgFields get user id streamdata")) return;

  LocalRef<jbooleanArray> nulls(
      env, static_cast<jbooleanArray>(env->CallObjectMethod(message, cls.getNulls)));
  if (reportIfPending(env, kGetNulls)) return;
  if (!nulls.get()) return;
  // The gateway reads `num_nulls` flags.
  if (static_cast<std::uint64_t>(env->GetArrayLength(nulls.get())) < msg.num_nulls) {
    saved.refusal = OX_ERR_INVALIDARGUMENT;
    msg.rev = oldRev;
    msg.user_id = oldUserId;
    return;
  }
  jboolean* const elements = env->GetBooleanArrayElements(nulls.get(), nullptr);
  if (refuseIfNull(env, elements, kGetNulls, saved)) return;
  saved.nullsElements = elements;
  saved.nullsArray = nulls.detach();
  saved.oldNulls = msg.nulls;
  saved.nullsReplaced = JNI_TRUE;
  msg.nulls = elements;
}

void replaceFields(JNIEnv* env, const JEnv& classes, ox_msg_t* msg, jobject message,
                   SavedMsgFields& saved) {
  if (msg->type == OX_MSG_DATA) {
    replaceDataFields(env, classes, *reinterpret_cast<ox_msg_data_t*>(msg), message, saved);
  } else if (msg->type == OX_MSG_STREAM_DATA) {
    replaceStreamFields(env, classes, *reinterpret_cast<ox_msg_streamdata_t*>(msg), message, saved);
  }
}

// Does not depend on the type of the record, which the gateway may have changed meanwhile.
void restoreFields(JNIEnv* env, ox_msg_t* msg, const SavedMsgFields& saved) {
  auto& data = *reinterpret_cast<ox_msg_data_t*>(msg);
  if (saved.addrReplaced) data.addr = saved.oldAddr;
  if (saved.refMsgReplaced) data.ref_msg = saved.oldRefMsg;
  if (saved.nullsReplaced) reinterpret_cast<ox_msg_streamdata_t*>(msg)->nulls = saved.oldNulls;
  if (saved.addrText) {
    env->ReleaseStringUTFChars(saved.addrString, saved.addrText);
    env->DeleteLocalRef(saved.addrString);
  }
  if (saved.nullsElements) {
    // JNI_ABORT leaves the Java array unchanged: the gateway may have written into the flags.
    env->ReleaseBooleanArrayElements(saved.nullsArray, saved.nullsElements, JNI_ABORT);
    env->DeleteLocalRef(saved.nullsArray);
  }
}

// Replaces fields of a record by those of its Java message. At the end of the scope, restores the
// pointers, but not user ids and the revision.
class ReplacedFields {
 public:
  ReplacedFields(JNIEnv* env, const JEnv& classes, ox_msg_t* msg, jobject message)
      : env_(env), msg_(msg) {
    replaceFields(env_, classes, msg_, message, saved_);
  }
  ReplacedFields(const ReplacedFields&) = delete;
  ReplacedFields& operator=(const ReplacedFields&) = delete;
  ~ReplacedFields() { restoreFields(env_, msg_, saved_); }

  int refusal() const { return saved_.refusal; }

 private:
  JNIEnv* env_;
  ox_msg_t* msg_;
  SavedMsgFields saved_{};
};

// Owns a new record of a publisher and frees it at the end of the scope unless it is released.
class OutgoingRecord {
 public:
  explicit OutgoingRecord(ox_publisher_t* pub) : pub_(pub) {}
  OutgoingRecord(const OutgoingRecord&) = delete;
  OutgoingRecord& operator=(const OutgoingRecord&) = delete;
  ~OutgoingRecord() {
    if (msg_) ox_pub_msgfree(pub_, msg_);
  }

  // Makes the record. Returns the gateway's result code, or OX_ERR_INTERNAL if it stores no record.
  // Call once.
  int make(int keyType, const void* key) {
    const int result = ox_pub_msgnew(pub_, keyType, key, &msg_);
    if (result != OX_ERR_OK) {
      msg_ = nullptr;
      return result;
    }
    return msg_ ? OX_ERR_OK : OX_ERR_INTERNAL;
  }
  ox_msg_t* get() const { return msg_; }
  void release() { msg_ = nullptr; }

 private:
  ox_publisher_t* pub_;
  ox_msg_t* msg_ = nullptr;
};

// Makes the record for a key. Returns false if the key cannot be read; otherwise `result` receives
// the gateway's result code.
bool makeRecord(JNIEnv* env, const JEnv& classes, OutgoingRecord& record, jint keyType, jobject key,
                int& result) {
  if (keyType == OX_KEY_NAME) {
    const UtfChars name(env, static_cast<jstring>(key), OXLI_STEP("pub_1msgnew key"));
    if (!name.ok()) return false;
    result = record.make(keyType, name.get());
    return true;
  }
  const jint value = env->CallIntMethod(key, classes.integer.intValue);
  if (reportIfPending(env, OXLI_STEP("pub_1msgnew int val"))) return false;
  result = record.make(keyType, &value);
  return true;
}

jobject createMessage(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme, jobject jscheme) {
  switch (msg->type) {
    case OX_MSG_DATA:
    case OX_MSG_STREAM_DATA:
    // For a parse error, Apply calls methods that DataMessage has and a plain `Message` has not.
    case OX_MSG_PARSEERR:
      if (reportIfPending(env, MessageFactory::kNewDataMessage)) return nullptr;
      return MessageFactory::CreateDataMessage(env, msg, scheme, jscheme);
    default:
      if (reportIfPending(env, MessageFactory::kNewMessage)) return nullptr;
      return MessageFactory::CreateMessage(env, msg, scheme);
  }
}

jint newMessage(JNIEnv* env, const JEnv& classes, ox_publisher_t* pub, jint keyType, jobject key,
                jobject jscheme, jobjectArray out) {
  OutgoingRecord record(pub);
  int recordResult = OX_ERR_OK;
  if (!makeRecord(env, classes, record, keyType, key, recordResult)) return OX_ERR_INTERNAL;
  // The scheme is always requested; its error takes precedence over that of the record.
  ox_scheme_desc_t* scheme = nullptr;
  if (const int result = ox_pub_getscheme(pub, &scheme)) return result;
  if (recordResult != OX_ERR_OK) return recordResult;

  const LocalRef<jobject> message(env, createMessage(env, record.get(), scheme, jscheme));
  if (!message.get()) return OX_ERR_INTERNAL;
  const bool applied = MessageFactory::Apply(env, message.get(), record.get());
  if (applied) {
    env->CallVoidMethod(message.get(), classes.message.setPublisherOwner, toHandle(pub));
  }
  if (reportIfPending(env, OXLI_STEP("pub_1msgnew set owner")) || !applied) return OX_ERR_INTERNAL;
  env->SetObjectArrayElement(out, 0, message.get());
  if (reportIfPending(env, OXLI_STEP("pub_1msgnew set array elm"))) return OX_ERR_INTERNAL;
  record.release();
  return OX_ERR_OK;
}

jint postMessage(JNIEnv* env, const JEnv& classes, ox_publisher_t* pub, jobject message,
                 jint flags) {
  const jlong ref = env->CallLongMethod(message, classes.message.getRef);
  if (reportIfPending(env, OXLI_STEP("pub_1post pub post"))) return OX_ERR_INTERNAL;
  auto* const msg = fromHandle<ox_msg_t>(ref);
  if (!msg) return OX_ERR_INVALIDARGUMENT;
  const ReplacedFields replaced(env, classes, msg, message);
  // The message is posted even with an exception pending, which the Java caller receives in any
  // case.
  return replaced.refusal() ? replaced.refusal() : ox_pub_post(pub, msg, flags);
}

jint disposeMessage(JNIEnv* env, const JEnv& classes, ox_publisher_t* pub, ox_msg_t* msg,
                    jobject message) {
  constexpr jint kMadeByGateway = 0;
  const jint createType = env->CallIntMethod(message, classes.message.getCreateType);
  if (reportIfPending(env, OXLI_STEP("pub_1msgdispose getCreateType"))) return OX_ERR_INTERNAL;
  if (createType != kMadeByGateway) return OX_ERR_INVALIDARGUMENT;
  return ox_pub_msgfree(pub, msg);
}

// Writes the dump of a record into `dump`. Returns false if the gateway fails.
bool dumpRecord(ox_msg_t* msg, jlong argument, std::string& dump) {
  dump.assign(1024, '\0');
  std::uint64_t size = dump.size();
  int result = ox_msg_dump(msg, argument, dump.data(), &size);
  if (result == OX_ERR_BUFFERTOOSMALL) {
    dump.resize(size);
    result = ox_msg_dump(msg, argument, dump.data(), &size);
  }
  if (result != OX_ERR_OK || size > dump.size()) return false;
  dump.resize(size);
  return true;
}

jbyteArray dumpMessage(JNIEnv* env, const JEnv& classes, jobject message, jlong argument) {
  const jlong ref = env->CallLongMethod(message, classes.message.getRef);
  if (reportIfPending(env, OXLI_STEP("msg_1dump get ref"))) return nullptr;
  auto* const msg = fromHandle<ox_msg_t>(ref);
  if (!msg) return nullptr;

  std::string dump;
  {
    const ReplacedFields replaced(env, classes, msg, message);
    if (replaced.refusal() || !dumpRecord(msg, argument, dump)) return nullptr;
  }
  // Replacing the fields may have left an exception, whose line has already been written.
  if (exceptionPending(env)) return nullptr;
  const auto length = static_cast<jsize>(dump.size());
  const jbyteArray bytes = env->NewByteArray(length);
  if (!bytes) return nullptr;
  env->SetByteArrayRegion(bytes, 0, length, reinterpret_cast<const jbyte*>(dump.data()));
  return bytes;
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

void replaceMsgFields(JNIEnv* env, ox_msg_t* msg, jobject message, SavedMsgFields* saved) {
  runWithClasses([&](JEnv& classes) {
    if (!env || !msg || !message || !saved) return;
    const bool isStreamData = msg->type == OX_MSG_STREAM_DATA;
    const char* const firstStep =
        isStreamData ? "replaceMsgFields getRef streamdata" : "replaceMsgFields getUserId";
    if ((isStreamData || msg->type == OX_MSG_DATA) && reportIfPending(env, firstStep)) return;
    replaceFields(env, classes, msg, message, *saved);
  });
}

void restoreMsgFields(JNIEnv* env, ox_msg_t* msg, SavedMsgFields* saved) {
  if (env && msg && saved) restoreFields(env, msg, *saved);
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1msgnew(JNIEnv* env, jclass,
                                                                       jlong handle, jint keyType,
                                                                       jobject key, jobject scheme,
                                                                       jobjectArray out) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    const jclass keyClass = keyType == OX_KEY_NAME ? classes.string.cls : classes.integer.cls;
    if (!key || !env->IsInstanceOf(key, keyClass) || !out) return OX_ERR_INVALIDARGUMENT;
    return newMessage(env, classes, fromHandle<ox_publisher_t>(handle), keyType, key, scheme, out);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1post(JNIEnv* env, jclass,
                                                                     jlong handle, jobject message,
                                                                     jint flags) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    if (!message) return OX_ERR_INVALIDARGUMENT;
    return postMessage(env, classes, fromHandle<ox_publisher_t>(handle), message, flags);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1msgdispose(JNIEnv* env, jclass,
                                                                           jlong handle, jlong ref,
                                                                           jobject message) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    if (!message) return OX_ERR_OK;
    return disposeMessage(env, classes, fromHandle<ox_publisher_t>(handle),
                          fromHandle<ox_msg_t>(ref), message);
  });
}

JNIEXPORT jbyteArray JNICALL Java_org_quendel_oxli_impl_OxliImpl_msg_1dump(JNIEnv* env, jclass,
                                                                           jobject message,
                                                                           jlong argument) {
  return objectWithClasses<jbyteArray>([&](JEnv& classes) -> jbyteArray {
    return message ? dumpMessage(env, classes, message, argument) : nullptr;
  });
}
