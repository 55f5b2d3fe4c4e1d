#include "jni/jenv/jenv.h"

#include <cstddef>
#include <cstdio>

#include "jni/base/references.h"

// glibc 2.34 added a second version of these functions when it moved them from libpthread. The
// first version, which it still contains, lets the library run on older systems.
#if defined(__x86_64__) && defined(__GLIBC__)
__asm__(".symver pthread_mutexattr_init, pthread_mutexattr_init@GLIBC_2.2.5");
__asm__(".symver pthread_mutexattr_settype, pthread_mutexattr_settype@GLIBC_2.2.5");
__asm__(".symver pthread_mutexattr_destroy, pthread_mutexattr_destroy@GLIBC_2.2.5");
#endif

namespace oxli::jni {

namespace {

enum class Kind { kInstance, kStatic };

template <class Block>
struct MethodRow {
  jmethodID Block::*id;
  const char* name;
  const char* signature;
  Kind kind = Kind::kInstance;
};

bool resolveClass(JNIEnv* env, std::vector<jclass>& refs, jclass& cls, const char* name) {
  // Memory is reserved before the reference is made, so that storing the reference cannot fail.
  refs.reserve(refs.size() + 1);
  const LocalRef<jclass> found(env, env->FindClass(name));
  if (found.get()) cls = static_cast<jclass>(env->NewGlobalRef(found.get()));
  if (!cls) {
    std::fprintf(stderr, "Failed to find class \"%s\"\n", name);
    return false;
  }
  refs.push_back(cls);
  return true;
}

bool resolveMethod(JNIEnv* env, jclass cls, jmethodID& id, const char* name, const char* signature,
                   Kind kind) {
  const bool isStatic = kind == Kind::kStatic;
  id = isStatic ? env->GetStaticMethodID(cls, name, signature)
                : env->GetMethodID(cls, name, signature);
  if (id) return true;
  std::fprintf(stderr, "Failed to find %smethod \"%s\" (%s)\n", isStatic ? "static " : "", name,
               signature);
  return false;
}

template <class Block, std::size_t N>
bool resolve(JNIEnv* env, std::vector<jclass>& refs, Block& block, const char* className,
             const MethodRow<Block> (&rows)[N]) {
  if (!resolveClass(env, refs, block.cls, className)) return false;
  for (const MethodRow<Block>& row : rows) {
    if (!resolveMethod(env, block.cls, block.*row.id, row.name, row.signature, row.kind))
      return false;
  }
  return true;
}

}  // namespace

JEnv::JEnv() {
  spInstance = this;
  pthread_mutexattr_init(&mutexAttr);
  pthread_mutexattr_settype(&mutexAttr, PTHREAD_MUTEX_RECURSIVE);
  for (pthread_mutex_t* mutex : {&pubMutex, &lsnMutex, &connMutex, &zblockMutex}) {
    pthread_mutex_init(mutex, &mutexAttr);
  }
}

JEnv::~JEnv() {
  spInstance = nullptr;
  for (pthread_mutex_t* mutex : {&lsnMutex, &connMutex, &zblockMutex, &pubMutex}) {
    pthread_mutex_destroy(mutex);
  }
  pthread_mutexattr_destroy(&mutexAttr);
}

bool JEnv::init(JNIEnv* env) {
  // One line for each block, in lookup order.
  // clang-format off
  return string.init(env, classRefs)
      && integer.init(env, classRefs)
      && intRef.init(env, classRefs)
      && objRef.init(env, classRefs)
      && byteBuffer.init(env, classRefs)
      && byteOrder.init(env, classRefs)
      && message.init(env, classRefs)
      && openMessage.init(env, classRefs)
      && closeMessage.init(env, classRefs)
      && parseErrorMessage.init(env, classRefs)
      && timeMessage.init(env, classRefs)
      && dataMessage.init(env, classRefs)
      && streamDataMessage.init(env, classRefs)
      && abstractDataMessage.init(env, classRefs)
      && tnBeginMessage.init(env, classRefs)
      && tnCommitMessage.init(env, classRefs)
      && zrMQTimeoutMessage.init(env, classRefs)
      && zrReplLifeNumMessage.init(env, classRefs)
      && zrReplOnlineMessage.init(env, classRefs)
      && zrReplClearDeletedMessage.init(env, classRefs)
      && zrReplStateMessage.init(env, classRefs)
      && scheme.init(env, classRefs)
      && subscriber.init(env, classRefs)
      && exitEventSubscriber.init(env, classRefs)
      && connection.init(env, classRefs)
      && zBlock.init(env, classRefs)
      && publisher.init(env, classRefs)
      && listener.init(env, classRefs)
      && messageDesc.init(env, classRefs)
      && fieldDesc.init(env, classRefs)
      && indexDesc.init(env, classRefs)
      && indexFieldDesc.init(env, classRefs)
      && fieldValueDesc.init(env, classRefs);
  // clang-format on
}

void JEnv::done(JNIEnv* env) {
  for (const jclass cls : classRefs) env->DeleteGlobalRef(cls);
  classRefs.clear();
}

bool JEnv::class_String::init(JNIEnv* env, std::vector<jclass>& refs) {
  return resolveClass(env, refs, cls, "java/lang/String");
}

bool JEnv::class_Integer::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_Integer> kRows[] = {
      {&class_Integer::intValue, "intValue", "()I"},
  };
  return resolve(env, refs, *this, "java/lang/Integer", kRows);
}

bool JEnv::class_IntRef::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_IntRef> kRows[] = {
      {&class_IntRef::set, "set", "(I)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/impl/IntRef", kRows);
}

bool JEnv::class_ObjRef::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_ObjRef> kRows[] = {
      {&class_ObjRef::set, "set", "(J)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/impl/ObjRef", kRows);
}

bool JEnv::class_ByteBuffer::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_ByteBuffer> kRows[] = {
      {&class_ByteBuffer::order, "order", "(Ljava/nio/ByteOrder;)Ljava/nio/ByteBuffer;"},
  };
  return resolve(env, refs, *this, "java/nio/ByteBuffer", kRows);
}

bool JEnv::class_ByteOrder::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_ByteOrder> kRows[] = {
      {&class_ByteOrder::nativeOrder, "nativeOrder", "()Ljava/nio/ByteOrder;", Kind::kStatic},
  };
  return resolve(env, refs, *this, "java/nio/ByteOrder", kRows);
}

bool JEnv::class_Message::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_Message> kRows[] = {
      {&class_Message::ctor, "<init>", "(I)V"},
      {&class_Message::setPublisherOwner, "setPublisherOwner", "(J)V"},
      {&class_Message::setRef, "setRef", "(J)V"},
      {&class_Message::setSchemeRef, "setSchemeRef", "(J)V"},
      {&class_Message::setData, "setData", "(Ljava/nio/ByteBuffer;)V"},
      {&class_Message::getRef, "getRef", "()J"},
      {&class_Message::getSchemeRef, "getSchemeRef", "()J"},
      {&class_Message::getCreateType, "getCreateType", "()I"},
      {&class_Message::setAllocCreateType, "setAllocCreateType", "()V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/messages/Message", kRows);
}

bool JEnv::class_OpenMessage::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_OpenMessage> kRows[] = {
      {&class_OpenMessage::ctor, "<init>", "()V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/messages/OpenMessage", kRows);
}

bool JEnv::class_CloseMessage::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_CloseMessage> kRows[] = {
      {&class_CloseMessage::ctor, "<init>", "()V"},
      {&class_CloseMessage::setReason, "setReason", "(I)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/messages/CloseMessage", kRows);
}

bool JEnv::class_ParseErrorMessage::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_ParseErrorMessage> kRows[] = {
      {&class_ParseErrorMessage::ctor, "<init>",
       "(IILjava/lang/String;Lorg/quendel/oxli/Scheme;)V"},
      {&class_ParseErrorMessage::setError, "setError", "(I)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/messages/ParseErrorMessage", kRows);
}

bool JEnv::class_TimeMessage::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_TimeMessage> kRows[] = {
      {&class_TimeMessage::ctor, "<init>", "()V"},
      {&class_TimeMessage::setTime, "setTime", "(J)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/messages/TimeMessage", kRows);
}

bool JEnv::class_DataMessage::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_DataMessage> kRows[] = {
      {&class_DataMessage::ctor, "<init>", "(IILjava/lang/String;Lorg/quendel/oxli/Scheme;)V"},
      {&class_DataMessage::setMsgIndex, "setMsgIndex", "(I)V"},
      {&class_DataMessage::setMsgId, "setMsgId", "(I)V"},
      {&class_DataMessage::setMsgName, "setMsgName", "(Ljava/lang/String;)V"},
      {&class_DataMessage::setUserId, "setUserId", "(I)V"},
      {&class_DataMessage::setAddress, "setAddress", "(Ljava/lang/String;)V"},
      {&class_DataMessage::setRefMessage, "setRefMessage",
       "(Lorg/quendel/oxli/messages/DataMessage;)V"},
      {&class_DataMessage::getUserId, "getUserId", "()I"},
      {&class_DataMessage::getAddress, "getAddress", "()Ljava/lang/String;"},
      {&class_DataMessage::getRefMessage, "getRefMessage",
       "()Lorg/quendel/oxli/messages/DataMessage;"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/messages/DataMessage", kRows);
}

bool JEnv::class_StreamDataMessage::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_StreamDataMessage> kRows[] = {
      {&class_StreamDataMessage::ctor, "<init>",
       "(IILjava/lang/String;Lorg/quendel/oxli/Scheme;)V"},
      {&class_StreamDataMessage::setMsgIndex, "setMsgIndex", "(I)V"},
      {&class_StreamDataMessage::setMsgId, "setMsgId", "(I)V"},
      {&class_StreamDataMessage::setMsgName, "setMsgName", "(Ljava/lang/String;)V"},
      {&class_StreamDataMessage::setRev, "setRev", "(J)V"},
      {&class_StreamDataMessage::setUserId, "setUserId", "(J)V"},
      {&class_StreamDataMessage::setNulls, "setNulls", "([Z)V"},
      {&class_StreamDataMessage::getRev, "getRev", "()J"},
      {&class_StreamDataMessage::getUserId, "getUserId", "()J"},
      {&class_StreamDataMessage::getNulls, "getNulls", "()[Z"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/messages/StreamDataMessage", kRows);
}

bool JEnv::class_AbstractDataMessage::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_AbstractDataMessage> kRows[] = {
      {&class_AbstractDataMessage::getScheme, "getScheme", "()Lorg/quendel/oxli/Scheme;"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/messages/AbstractDataMessage", kRows);
}

bool JEnv::class_TnBeginMessage::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_TnBeginMessage> kRows[] = {
      {&class_TnBeginMessage::ctor, "<init>", "()V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/messages/TnBeginMessage", kRows);
}

bool JEnv::class_TnCommitMessage::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_TnCommitMessage> kRows[] = {
      {&class_TnCommitMessage::ctor, "<init>", "()V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/messages/TnCommitMessage", kRows);
}

bool JEnv::class_ZrMQTimeoutMessage::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_ZrMQTimeoutMessage> kRows[] = {
      {&class_ZrMQTimeoutMessage::ctor, "<init>", "()V"},
      {&class_ZrMQTimeoutMessage::setUserId, "setUserId", "(I)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/messages/ZrMqTimeOutMessage", kRows);
}

bool JEnv::class_ZrReplLifeNumMessage::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_ZrReplLifeNumMessage> kRows[] = {
      {&class_ZrReplLifeNumMessage::ctor, "<init>", "()V"},
      {&class_ZrReplLifeNumMessage::setLifenum, "setLifenum", "(J)V"},
      {&class_ZrReplLifeNumMessage::setFlags, "setFlags", "(J)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/messages/ZrReplLifeNumMessage", kRows);
}

bool JEnv::class_ZrReplOnlineMessage::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_ZrReplOnlineMessage> kRows[] = {
      {&class_ZrReplOnlineMessage::ctor, "<init>", "()V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/messages/ZrReplOnlineMessage", kRows);
}

bool JEnv::class_ZrReplClearDeletedMessage::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_ZrReplClearDeletedMessage> kRows[] = {
      {&class_ZrReplClearDeletedMessage::ctor, "<init>", "()V"},
      {&class_ZrReplClearDeletedMessage::setTableIdx, "setTableIdx", "(I)V"},
      {&class_ZrReplClearDeletedMessage::setTableRev, "setTableRev", "(J)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/messages/ZrReplClearDeletedMessage", kRows);
}

bool JEnv::class_ZrReplStateMessage::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_ZrReplStateMessage> kRows[] = {
      {&class_ZrReplStateMessage::ctor, "<init>", "()V"},
      {&class_ZrReplStateMessage::setReplState, "setReplState", "(Ljava/lang/String;)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/messages/ZrReplStateMessage", kRows);
}

bool JEnv::class_Scheme::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_Scheme> kRows[] = {
      {&class_Scheme::setRef, "setRef", "(J)V"},
      {&class_Scheme::setType, "setType", "(J)V"},
      {&class_Scheme::setFeatures, "setFeatures", "(J)V"},
      {&class_Scheme::setMessages, "setMessages", "([Lorg/quendel/oxli/MessageDesc;)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/Scheme", kRows);
}

bool JEnv::class_Subscriber::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_Subscriber> kRows[] = {
      {&class_Subscriber::onMessage, "onMessage",
       "(Lorg/quendel/oxli/Connection;Lorg/quendel/oxli/Listener;Lorg/quendel/oxli/messages/"
       "Message;)I"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/ISubscriber", kRows);
}

bool JEnv::class_ExitEventSubscriber::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_ExitEventSubscriber> kRows[] = {
      {&class_ExitEventSubscriber::onExitEvent, "onExitEvent", "()V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/IExitEventHandler", kRows);
}

bool JEnv::class_Connection::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_Connection> kRows[] = {
      {&class_Connection::ctor, "<init>", "(J)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/Connection", kRows);
}

bool JEnv::class_ZBlock::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_ZBlock> kRows[] = {
      {&class_ZBlock::ctor, "<init>", "(J)V"},
      {&class_ZBlock::setData, "setData", "(Ljava/nio/ByteBuffer;)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/ZBlock", kRows);
}

bool JEnv::class_Publisher::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_Publisher> kRows[] = {
      {&class_Publisher::ctor, "<init>", "(J)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/Publisher", kRows);
}

bool JEnv::class_Listener::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_Listener> kRows[] = {
      {&class_Listener::ctor, "<init>", "(J)V"},
      {&class_Listener::getScheme, "getScheme", "()Lorg/quendel/oxli/Scheme;"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/Listener", kRows);
}

bool JEnv::class_MessageDesc::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_MessageDesc> kRows[] = {
      {&class_MessageDesc::ctor, "<init>",
       "(JLjava/lang/String;Ljava/lang/String;[Ljava/lang/String;[Lorg/quendel/oxli/"
       "FieldDesc;[Lorg/quendel/oxli/IndexDesc;)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/MessageDesc", kRows);
}

bool JEnv::class_FieldDesc::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_FieldDesc> kRows[] = {
      {&class_FieldDesc::ctor, "<init>",
       "(JLjava/lang/String;Ljava/lang/String;Ljava/lang/String;IILjava/nio/ByteBuffer;[Lorg/"
       "quendel/oxli/FieldValueDesc;Lorg/quendel/oxli/MessageDesc;)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/FieldDesc", kRows);
}

bool JEnv::class_IndexDesc::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_IndexDesc> kRows[] = {
      {&class_IndexDesc::ctor, "<init>",
       "(Ljava/lang/String;Ljava/lang/String;[Ljava/lang/String;[Lorg/quendel/oxli/"
       "IndexFieldDesc;)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/IndexDesc", kRows);
}

bool JEnv::class_IndexFieldDesc::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_IndexFieldDesc> kRows[] = {
      {&class_IndexFieldDesc::ctor, "<init>", "(Lorg/quendel/oxli/FieldDesc;I)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/IndexFieldDesc", kRows);
}

bool JEnv::class_FieldValueDesc::init(JNIEnv* env, std::vector<jclass>& refs) {
  static constexpr MethodRow<class_FieldValueDesc> kRows[] = {
      {&class_FieldValueDesc::ctor, "<init>",
       "(Ljava/lang/String;Ljava/lang/String;Ljava/nio/ByteBuffer;J)V"},
  };
  return resolve(env, refs, *this, "org/quendel/oxli/FieldValueDesc", kRows);
}

}  // namespace oxli::jni
