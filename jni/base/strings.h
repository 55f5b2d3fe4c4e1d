// Converts strings between Java and the gateway, in the virtual machine's modified UTF-8.
#ifndef OXLI_JNI_BASE_STRINGS_H
#define OXLI_JNI_BASE_STRINGS_H

#include <jni.h>

#include <utility>

#include "jni/base/failure.h"
#include "jni/base/references.h"

namespace oxli::jni {

// Acquires the characters of a Java string for the scope:
//
//   const UtfChars chars(env, settings, OXLI_STEP("conn_1open settings"));
//   if (!chars.ok()) return OX_ERR_INTERNAL;
class UtfChars {
 public:
  // Writes the line for `step` if the characters cannot be acquired.
  // REQUIRES: `string` is not null and no exception is pending.
  UtfChars(JNIEnv* env, jstring string, const char* step)
      : env_(env), string_(string), chars_(env->GetStringUTFChars(string, nullptr)) {
    if (!chars_) reportFailure(step);
  }
  UtfChars(const UtfChars&) = delete;
  UtfChars& operator=(const UtfChars&) = delete;
  ~UtfChars() { release(); }

  // Releases the characters before the scope ends. Legal with an exception pending.
  void release() {
    if (const char* const chars = std::exchange(chars_, nullptr)) {
      env_->ReleaseStringUTFChars(string_, chars);
    }
  }

  bool ok() const { return chars_ != nullptr; }
  const char* get() const { return chars_; }

 private:
  JNIEnv* env_;
  jstring string_;
  const char* chars_;
};

// Makes a Java string from a gateway string and deletes its reference at the end of the scope. A
// null gateway string becomes a null Java string.
class LocalString {
 public:
  // Writes the line for `step` if the string cannot be made. REQUIRES: no exception is pending.
  LocalString(JNIEnv* env, const char* chars, const char* step)
      : string_(env, chars ? env->NewStringUTF(chars) : nullptr), ok_(!chars || string_.get()) {
    if (!ok_) reportFailure(step);
  }

  bool ok() const { return ok_; }
  jstring get() const { return string_.get(); }
  // Transfers the reference to the caller.
  jstring detach() { return string_.detach(); }

 private:
  LocalRef<jstring> string_;
  bool ok_;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_STRINGS_H
