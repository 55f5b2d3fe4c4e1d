// Receives a replica on a connection and a listener that native code owns, and passes the messages
// to a Java subscriber, as a listener made in Java does.
#include <oxli/oxjni.h>

namespace {

// Owns a connection and a listener during one native call. Uses the JNIEnv and the local references
// of the calling thread.
class Receiver {
 public:
  Receiver(JNIEnv* env, jobject subscriber, jmethodID onMessage)
      : env_(env), subscriber_(subscriber), onMessage_(onMessage) {}
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  ~Receiver() {
    if (lsn_) {
      ox_lsn_close(lsn_);            // delivers the last messages, which need the binding
      oxjni_lsn_unwrap(env_, lsn_);  // outside the callback, before the listener is destroyed
      ox_lsn_destroy(lsn_);
    }
    if (conn_) {
      oxjni_conn_unwrap(env_, conn_);
      ox_conn_destroy(conn_);
    }
  }

  int open(const char* settings) {
    if (const int result = ox_conn_new("", &conn_)) return result;
    if (const int result = ox_lsn_new(conn_, settings, &callback, this, &lsn_)) return result;
    connection_ = oxjni_conn_wrap(env_, conn_);
    if (!connection_) return OX_ERR_INTERNAL;
    listener_ = oxjni_lsn_wrap(env_, conn_, lsn_, &binding_);
    if (!listener_) return OX_ERR_INTERNAL;
    if (const int result = ox_conn_open(conn_, "")) return result;
    return ox_lsn_open(lsn_, "");
  }

  // Returns when the snapshot is complete, or when no message is delivered within the timeout.
  int receive(int timeoutMillis) {
    for (long before = -1; !complete_ && delivered_ != before;) {
      before = delivered_;
      if (const int result = ox_conn_process(conn_, timeoutMillis, nullptr)) return result;
    }
    return OX_ERR_OK;
  }

 private:
  static int callback(ox_conn_t*, ox_listener_t*, ox_msg_t* msg, void* data) {
    return static_cast<Receiver*>(data)->deliver(msg);
  }

  int deliver(ox_msg_t* msg) {
    ++delivered_;
    if (msg->type == OX_MSG_ZRREPL_ONLINE) complete_ = true;
    // Do not delete this reference: the binding owns the object and uses it for the next message.
    const jobject message = oxjni_lsn_cacheget(env_, lsn_, msg, binding_);
    if (!message || env_->ExceptionCheck()) return OX_ERR_INTERNAL;
    const jint result =
        env_->CallIntMethod(subscriber_, onMessage_, connection_, listener_, message);
    // A pending exception must end the delivery. Java throws it when the native returns.
    return env_->ExceptionCheck() ? OX_ERR_INTERNAL : result;
  }

  JNIEnv* env_;
  jobject subscriber_;
  jmethodID onMessage_;
  ox_conn_t* conn_ = nullptr;
  ox_listener_t* lsn_ = nullptr;
  void* binding_ = nullptr;
  jobject connection_ = nullptr;
  jobject listener_ = nullptr;
  long delivered_ = 0;
  bool complete_ = false;
};

}  // namespace

extern "C" JNIEXPORT jint JNICALL Java_Snapshot_receive(JNIEnv* env, jclass, jstring settings,
                                                        jobject subscriber, jint timeoutMillis) {
  const jmethodID onMessage =
      env->GetMethodID(env->GetObjectClass(subscriber), "onMessage",
                       "(Lorg/quendel/oxli/Connection;Lorg/quendel/oxli/Listener;"
                       "Lorg/quendel/oxli/messages/Message;)I");
  if (!onMessage) return OX_ERR_INTERNAL;
  const char* const chars = env->GetStringUTFChars(settings, nullptr);
  if (!chars) return OX_ERR_INTERNAL;
  Receiver receiver(env, subscriber, onMessage);
  const int opened = receiver.open(chars);
  env->ReleaseStringUTFChars(settings, chars);
  return opened != OX_ERR_OK ? opened : receiver.receive(timeoutMillis);
}
