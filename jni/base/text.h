// Texts on their way between Java and the gateway.
#ifndef OXLI_JNI_BASE_TEXT_H
#define OXLI_JNI_BASE_TEXT_H

#include <jni.h>

#include <utility>

#include "jni/base/failure.h"
#include "jni/base/references.h"

namespace oxli::jni {

// The modified UTF-8 characters of a Java string, borrowed for the scope:
//
//   const UtfChars text(env, settings);
//   if (text.notTaken("... settings")) return OX_ERR_INTERNAL;
class UtfChars {
 public:
  // REQUIRES: `string` is not null and no exception is pending.
  UtfChars(JNIEnv* env, jstring string)
      : env_(env), string_(string), chars_(env->GetStringUTFChars(string, nullptr)) {}
  UtfChars(const UtfChars&) = delete;
  UtfChars& operator=(const UtfChars&) = delete;
  ~UtfChars() { release(); }

  // Gives the characters back before the scope ends.
  void release() {
    if (const char* const chars = std::exchange(chars_, nullptr)) {
      env_->ReleaseStringUTFChars(string_, chars);
    }
  }

  // Writes the line for `step` if the characters could not be had.
  [[nodiscard]] bool notTaken(const char* step) const { return notMade(env_, chars_, step); }
  const char* get() const { return chars_; }

 private:
  JNIEnv* env_;
  jstring string_;
  const char* chars_;
};

// A Java string made from a text of the gateway's, deleted at the end of the scope. A null text
// gives a null string. REQUIRES: no exception is pending.
class JavaText {
 public:
  JavaText(JNIEnv* env, const char* text)
      : env_(env), text_(text), string_(env, text ? env->NewStringUTF(text) : nullptr) {}

  // Writes the line for `step` if the string could not be made.
  [[nodiscard]] bool notMadeFor(const char* step) const {
    // A string that is there left no exception: not asked for again on the way of every message.
    return text_ && !string_.get() && notMade(env_, nullptr, step);
  }
  jstring get() const { return string_.get(); }

 private:
  JNIEnv* env_;
  const char* text_;
  LocalRef<jstring> string_;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_TEXT_H
