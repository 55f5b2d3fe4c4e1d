#include "jni/outgoing_message.h"

#include <string>

#include "jni/base/failure.h"
#include "jni/base/handles.h"
#include "jni/base/references.h"
#include "jni/base/text.h"
#include "jni/jenv/with_cache.h"
#include "jni/message_factory.h"
#include "org_quendel_oxli_impl_OxliImpl.h"

namespace oxli::jni {

namespace {

// Whether memory that Java was to lend is missing; the line for `step` has been written then.
bool notLent(JNIEnv* env, const void* lent, const char* step, SavedMsgFields& saved) {
  if (!notMade(env, lent, step)) return false;
  if (!exceptionPending(env)) saved.refusal = OX_ERR_INTERNAL;
  return true;
}

void replaceDataFields(JNIEnv* env, const JEnv& cache, ox_msg_data_t& msg, jobject message,
                       SavedMsgFields& saved) {
  constexpr char kGetAddress[] = "replaceMsgFields getAddress";
  const auto& of = cache.dataMessage;
  const jint userId = env->CallIntMethod(message, of.getUserId);
  if (javaFailed(env, "replaceMsgFields getUserId")) return;
  msg.user_id = static_cast<std::uint32_t>(userId);

  LocalRef<jstring> address(env,
                            static_cast<jstring>(env->CallObjectMethod(message, of.getAddress)));
  if (javaFailed(env, kGetAddress)) return;
  if (address.get()) {
    const char* const text = env->GetStringUTFChars(address.get(), nullptr);
    if (notLent(env, text, kGetAddress, saved)) return;
    saved.addrText = text;
    saved.addrString = address.release();
    saved.oldAddr = msg.addr;
    saved.addrReplaced = true;
    msg.addr = text;
  }

  const LocalRef<jobject> reference(env, env->CallObjectMethod(message, of.getRefMessage));
  if (javaFailed(env, "replaceMsgFields getRefMessage")) return;
  if (reference.get()) {
    const jlong record = env->CallLongMethod(reference.get(), cache.message.getRef);
    if (javaFailed(env, "replaceMsgFields getRef")) return;
    saved.oldRefMsg = msg.ref_msg;
    saved.refMsgReplaced = true;
    msg.ref_msg = fromHandle<ox_msg_data_t>(record);
  }
}

void replaceStreamFields(JNIEnv* env, const JEnv& cache, ox_msg_streamdata_t& msg, jobject message,
                         SavedMsgFields& saved) {
  constexpr char kGetNulls[] = "replaceMsgFields get nulls";
  const auto& of = cache.streamDataMessage;
  const std::int64_t oldRev = msg.rev;
  const std::uint64_t oldUserId = msg.user_id;
  msg.rev = env->CallLongMethod(message, of.getRev);
  if (javaFailed(env, "replaceMsgFields getRef streamdata")) return;
  msg.user_id = static_cast<std::uint64_t>(env->CallLongMethod(message, of.getUserId));
  if (javaFailed(env, "replaceMsgFields get user id streamdata")) return;

  LocalRef<jbooleanArray> nulls(
      env, static_cast<jbooleanArray>(env->CallObjectMethod(message, of.getNulls)));
  if (javaFailed(env, kGetNulls)) return;
  if (!nulls.get()) return;
  // The gateway reads as many flags as the record says.
  if (static_cast<std::uint64_t>(env->GetArrayLength(nulls.get())) < msg.num_nulls) {
    saved.refusal = OX_ERR_INVALIDARGUMENT;
    msg.rev = oldRev;
    msg.user_id = oldUserId;
    return;
  }
  jboolean* const elements = env->GetBooleanArrayElements(nulls.get(), nullptr);
  if (notLent(env, elements, kGetNulls, saved)) return;
  saved.nullsElements = elements;
  saved.nullsArray = nulls.release();
  saved.oldNulls = msg.nulls;
  saved.nullsReplaced = true;
  msg.nulls = elements;
}

void restoreDataFields(JNIEnv* env, ox_msg_data_t& msg, const SavedMsgFields& saved) {
  if (saved.addrReplaced) msg.addr = saved.oldAddr;
  if (saved.refMsgReplaced) msg.ref_msg = saved.oldRefMsg;
  if (saved.addrText) {
    env->ReleaseStringUTFChars(saved.addrString, saved.addrText);
    env->DeleteLocalRef(saved.addrString);
  }
}

void restoreStreamFields(JNIEnv* env, ox_msg_streamdata_t& msg, const SavedMsgFields& saved) {
  if (saved.nullsReplaced) msg.nulls = saved.oldNulls;
  if (saved.nullsElements) {
    // What the gateway may have written into the flags is not Java's business.
    env->ReleaseBooleanArrayElements(saved.nullsArray, saved.nullsElements, JNI_ABORT);
    env->DeleteLocalRef(saved.nullsArray);
  }
}

// Exchanges a record's fields for the scope of one gateway call.
class ExchangedFields {
 public:
  ExchangedFields(JNIEnv* env, ox_msg_t* msg, jobject message) : env_(env), msg_(msg) {
    replaceMsgFields(env_, msg_, message, &saved_);
  }
  ExchangedFields(const ExchangedFields&) = delete;
  ExchangedFields& operator=(const ExchangedFields&) = delete;
  ~ExchangedFields() { restoreMsgFields(env_, msg_, &saved_); }

  int refusal() const { return saved_.refusal; }

 private:
  JNIEnv* env_;
  ox_msg_t* msg_;
  SavedMsgFields saved_;
};

// A new record of the publisher's, given back unless kept.
class NewRecord {
 public:
  explicit NewRecord(ox_publisher_t* pub) : pub_(pub) {}
  NewRecord(const NewRecord&) = delete;
  NewRecord& operator=(const NewRecord&) = delete;
  ~NewRecord() {
    if (msg_) ox_pub_msgfree(pub_, msg_);
  }

  int make(int keyType, const void* key) {
    const int result = ox_pub_msgnew(pub_, keyType, key, &msg_);
    if (result != OX_ERR_OK) msg_ = nullptr;
    return result;
  }
  ox_msg_t* get() const { return msg_; }
  void keep() { msg_ = nullptr; }

 private:
  ox_publisher_t* pub_;
  ox_msg_t* msg_ = nullptr;
};

// False when the key could not be read; otherwise `answer` is the gateway's.
bool makeRecord(JNIEnv* env, const JEnv& cache, NewRecord& record, jint keyType, jobject key,
                int& answer) {
  constexpr char kKey[] = "Java_org_quendel_oxli_impl_OxliImpl_pub_1msgnew int val";
  if (keyType == OX_KEY_NAME) {
    const UtfChars name(env, static_cast<jstring>(key));
    if (name.notTaken(kKey)) return false;
    answer = record.make(keyType, name.get());
    return true;
  }
  const jint value = env->CallIntMethod(key, cache.integer.intValue);
  if (javaFailed(env, kKey)) return false;
  answer = record.make(keyType, &value);
  return true;
}

jobject createOutgoing(JNIEnv* env, ox_msg_t* msg, ox_scheme_desc_t* scheme, jobject jscheme) {
  switch (msg->type) {
    case OX_MSG_DATA:
    case OX_MSG_STREAM_DATA:
    case OX_MSG_PARSEERR:
      return MessageFactory::CreateDataMessage(env, msg, scheme, jscheme);
    default:
      return MessageFactory::CreateMessage(env, msg, scheme);
  }
}

jint newMessage(JNIEnv* env, const JEnv& cache, ox_publisher_t* pub, jint keyType, jobject key,
                jobject jscheme, jobjectArray out) {
  NewRecord record(pub);
  int answer = OX_ERR_OK;
  if (!makeRecord(env, cache, record, keyType, key, answer)) return OX_ERR_INTERNAL;
  // Asked for, and its failure returned first, whatever became of the record.
  ox_scheme_desc_t* scheme = nullptr;
  if (const int result = ox_pub_getscheme(pub, &scheme)) return result;
  if (answer != OX_ERR_OK) return answer;
  // A callback of the gateway's may have thrown meanwhile.
  if (exceptionPending(env)) return OX_ERR_INTERNAL;

  const LocalRef<jobject> message(env, createOutgoing(env, record.get(), scheme, jscheme));
  if (!message.get() || !MessageFactory::Apply(env, message.get(), record.get())) {
    return OX_ERR_INTERNAL;
  }
  env->CallVoidMethod(message.get(), cache.message.setPublisherOwner, toHandle(pub));
  if (javaFailed(env, "Java_org_quendel_oxli_impl_OxliImpl_pub_1msgnew set owner")) {
    return OX_ERR_INTERNAL;
  }
  env->SetObjectArrayElement(out, 0, message.get());
  if (javaFailed(env, "Java_org_quendel_oxli_impl_OxliImpl_pub_1msgnew set array elm")) {
    return OX_ERR_INTERNAL;
  }
  record.keep();
  return OX_ERR_OK;
}

jint postMessage(JNIEnv* env, const JEnv& cache, ox_publisher_t* pub, jobject message, jint flags) {
  const jlong ref = env->CallLongMethod(message, cache.message.getRef);
  if (javaFailed(env, "Java_org_quendel_oxli_impl_OxliImpl_pub_1post pub post")) {
    return OX_ERR_INTERNAL;
  }
  auto* const msg = fromHandle<ox_msg_t>(ref);
  if (!msg) return OX_ERR_INVALIDARGUMENT;
  const ExchangedFields exchanged(env, msg, message);
  // Posted also with an exception pending: the exception reaches the caller all the same.
  return exchanged.refusal() ? exchanged.refusal() : ox_pub_post(pub, msg, flags);
}

// The dump's text in `text`; false when the gateway gave none.
bool dumpRecord(ox_msg_t* msg, jlong argument, std::string& text) {
  text.assign(1024, '\0');
  std::uint64_t size = text.size();
  int result = ox_msg_dump(msg, argument, text.data(), &size);
  if (result == OX_ERR_BUFFERTOOSMALL) {
    text.resize(size);
    result = ox_msg_dump(msg, argument, text.data(), &size);
  }
  if (result != OX_ERR_OK || size > text.size()) return false;
  text.resize(size);
  return true;
}

jbyteArray dumpMessage(JNIEnv* env, const JEnv& cache, jobject message, jlong argument) {
  const jlong ref = env->CallLongMethod(message, cache.message.getRef);
  if (javaFailed(env, "Java_org_quendel_oxli_impl_OxliImpl_msg_1dump get ref")) return nullptr;
  auto* const msg = fromHandle<ox_msg_t>(ref);
  if (!msg) return nullptr;

  std::string text;
  {
    const ExchangedFields exchanged(env, msg, message);
    if (exchanged.refusal() || !dumpRecord(msg, argument, text)) return nullptr;
  }
  if (exceptionPending(env)) return nullptr;
  const auto length = static_cast<jsize>(text.size());
  const jbyteArray dump = env->NewByteArray(length);
  if (!dump) return nullptr;
  env->SetByteArrayRegion(dump, 0, length, reinterpret_cast<const jbyte*>(text.data()));
  return dump;
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

void replaceMsgFields(JNIEnv* env, ox_msg_t* msg, jobject message, SavedMsgFields* saved) {
  const JEnv* const cache = JEnv::spInstance;
  if (!cache) return;
  if (msg->type == OX_MSG_DATA) {
    replaceDataFields(env, *cache, *reinterpret_cast<ox_msg_data_t*>(msg), message, *saved);
  } else if (msg->type == OX_MSG_STREAM_DATA) {
    replaceStreamFields(env, *cache, *reinterpret_cast<ox_msg_streamdata_t*>(msg), message, *saved);
  }
}

void restoreMsgFields(JNIEnv* env, ox_msg_t* msg, SavedMsgFields* saved) {
  if (msg->type == OX_MSG_DATA) {
    restoreDataFields(env, *reinterpret_cast<ox_msg_data_t*>(msg), *saved);
  } else if (msg->type == OX_MSG_STREAM_DATA) {
    restoreStreamFields(env, *reinterpret_cast<ox_msg_streamdata_t*>(msg), *saved);
  }
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1msgnew(JNIEnv* env, jclass,
                                                                       jlong handle, jint keyType,
                                                                       jobject key, jobject scheme,
                                                                       jobjectArray out) {
  return resultWithCache([&](JEnv& cache) -> jint {
    const jclass keyClass = keyType == OX_KEY_NAME ? cache.string.cls : cache.integer.cls;
    if (!key || !env->IsInstanceOf(key, keyClass) || !out) return OX_ERR_INVALIDARGUMENT;
    return newMessage(env, cache, fromHandle<ox_publisher_t>(handle), keyType, key, scheme, out);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1post(JNIEnv* env, jclass,
                                                                     jlong handle, jobject message,
                                                                     jint flags) {
  return resultWithCache([&](JEnv& cache) -> jint {
    if (!message) return OX_ERR_INVALIDARGUMENT;
    return postMessage(env, cache, fromHandle<ox_publisher_t>(handle), message, flags);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1msgdispose(JNIEnv* env, jclass,
                                                                           jlong handle, jlong ref,
                                                                           jobject message) {
  return resultWithCache([&](JEnv& cache) -> jint {
    if (!message) return OX_ERR_OK;
    const jint createType = env->CallIntMethod(message, cache.message.getCreateType);
    if (javaFailed(env, "Java_org_quendel_oxli_impl_OxliImpl_pub_1msgdispose getCreateType")) {
      return OX_ERR_INTERNAL;
    }
    // Only what the gateway made is its to free.
    if (createType != 0) return OX_ERR_INVALIDARGUMENT;
    return ox_pub_msgfree(fromHandle<ox_publisher_t>(handle), fromHandle<ox_msg_t>(ref));
  });
}

JNIEXPORT jbyteArray JNICALL Java_org_quendel_oxli_impl_OxliImpl_msg_1dump(JNIEnv* env, jclass,
                                                                           jobject message,
                                                                           jlong argument) {
  return objectWithCache<jbyteArray>([&](JEnv& cache) -> jbyteArray {
    return message ? dumpMessage(env, cache, message, argument) : nullptr;
  });
}
