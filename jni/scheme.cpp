#include <cstddef>
#include <cstdint>
#include <limits>

#include "jni/base/failure.h"
#include "jni/base/memory.h"
#include "jni/jenv/with_classes.h"
#include "jni/listener.h"
#include "jni/oxjni.h"
#include "org_quendel_oxli_impl_OxliImpl.h"

namespace oxli::jni {

namespace {

// The maximum depth of nested messages, the outermost one included. Limits the stack that a
// conversion uses.
constexpr int kMaxDepth = 256;
// A list of hints with this many nodes is refused: its array has two elements for each node.
constexpr jsize kMaxHints = std::numeric_limits<jsize>::max() / 2;

struct FieldClasses {
  jclass field;
  jmethodID fieldCtor;
  jclass value;
  jmethodID valueCtor;
};

// Returns the integer of a named value, sign-extended for unsigned types, too; -1 if the field is
// not an integer or the value has none.
jlong integerValue(const ox_field_desc_t& field, const ox_field_value_desc_t& value) {
  constexpr jlong kNone = -1;
  const char kind = field.type ? *field.type : '\0';
  if ((kind != 'i' && kind != 'u') || !value.int_value) return kNone;
  switch (field.size) {
    case 1:
      return load<std::int8_t>(value.int_value);
    case 2:
      return load<std::int16_t>(value.int_value);
    case 4:
      return load<std::int32_t>(value.int_value);
    case 8:
      return load<std::int64_t>(value.int_value);
    default:
      return kNone;
  }
}

// Converts a scheme description, or a part of one, to Java objects. After a failed step no further
// step runs. The next call of reportIfFailed() writes the line, with the step that it is given; the
// calls for the enclosing descriptions may write further lines. The local references of the
// conversion are valid until the calling native returns.
class Conversion {
 public:
  Conversion(JNIEnv* env, const JEnv& classes) : env_(env), classes_(classes) {
    // Announces the local references to virtual machines that check their number. Always requests
    // the largest capacity that virtual machines grant, because it costs nothing, and counting the
    // references would repeat every step.
    constexpr jint kMaxCapacity = 65536;
    if (!exceptionPending(env_)) static_cast<void>(env_->EnsureLocalCapacity(kMaxCapacity));
  }

  void convertScheme(const ox_scheme_desc_t& desc, jobject scheme);
  void convertMessage(const ox_message_desc_t& desc, jobject* out);
  jobject convertField(const FieldClasses& classes, const ox_field_desc_t& desc);
  jobjectArray convertHints(const ox_hint_t* hints);

 private:
  jobject convertIndex(const ox_index_desc_t& desc);

  bool failed() const { return failed_ || exceptionPending(env_); }
  // Writes the line for `step` and returns true if the conversion has failed.
  bool reportIfFailed(const char* step) const {
    if (!failed()) return false;
    reportFailure(step);
    return true;
  }

  // Returns `ref`, the result of a step. Null makes the conversion fail.
  template <class Ref>
  Ref made(Ref ref) {
    if (!ref) failed_ = true;
    return ref;
  }

  jstring newString(const char* chars) {
    return chars && !failed() ? made(env_->NewStringUTF(chars)) : nullptr;
  }

  // Returns a new buffer over the gateway's memory. The conversion fails if `size` exceeds 2^31 - 1
  // bytes.
  jobject newView(const void* bytes, std::size_t size) {
    constexpr auto kMaxSize = std::size_t{std::numeric_limits<jint>::max()};
    if (bytes && size > kMaxSize) failed_ = true;
    if (!bytes || failed()) return nullptr;
    return made(env_->NewDirectByteBuffer(const_cast<void*>(bytes), static_cast<jlong>(size)));
  }

  template <class Count>
  jobjectArray newArray(Count count, jclass cls) {
    if (failed()) return nullptr;
    return made(env_->NewObjectArray(static_cast<jsize>(count), cls, nullptr));
  }

  template <class... Args>
  jobject newObject(jclass cls, jmethodID ctor, Args... args) {
    return failed() ? nullptr : made(env_->NewObject(cls, ctor, args...));
  }

  // A list with more elements than its count raises ArrayIndexOutOfBoundsException.
  void setElement(jobjectArray array, jsize position, jobject element) {
    if (!failed()) env_->SetObjectArrayElement(array, position, element);
  }

  FieldClasses fieldClasses() const {
    return {classes_.fieldDesc.cls, classes_.fieldDesc.ctor, classes_.fieldValueDesc.cls,
            classes_.fieldValueDesc.ctor};
  }

  JNIEnv* env_;
  const JEnv& classes_;
  int depth_ = 0;
  bool failed_ = false;
};

jobjectArray Conversion::convertHints(const ox_hint_t* hints) {
  jsize count = 0;
  // Advances half as fast as `hint`, which reaches it only if the list is circular.
  const ox_hint_t* slower = hints;
  for (const auto* hint = hints; hint && !failed_; hint = hint->next) {
    if (++count % 2 == 0) slower = slower->next;
    if (hint->next == slower || count == kMaxHints) failed_ = true;
  }
  const jobjectArray array = newArray(2 * count, classes_.string.cls);
  if (!array) return nullptr;
  jsize position = 0;
  for (const auto* hint = hints; hint && !failed(); hint = hint->next) {
    setElement(array, position++, newString(hint->key));
    setElement(array, position++, newString(hint->value));
  }
  return failed() ? nullptr : array;
}

jobject Conversion::convertField(const FieldClasses& classes, const ox_field_desc_t& desc) {
  const jstring name = newString(desc.name);
  const jstring description = newString(desc.desc);
  const jstring type = newString(desc.type);
  const jobject view = newView(desc.value, desc.size);
  const jobjectArray values = newArray(desc.num_values, classes.value);
  if (!values) return nullptr;

  jsize position = 0;
  for (const auto* value = desc.values; value && !failed(); value = value->next) {
    const jstring valueName = newString(value->name);
    const jstring valueDescription = newString(value->desc);
    const jobject valueView = newView(value->value, desc.size);
    setElement(values, position++,
               newObject(classes.value, classes.valueCtor, valueName, valueDescription, valueView,
                         integerValue(desc, *value)));
  }

  jobject nested = nullptr;
  if (desc.msg && !failed()) convertMessage(*desc.msg, &nested);
  return newObject(classes.field, classes.fieldCtor, static_cast<jlong>(desc.number), name,
                   description, type, static_cast<jint>(desc.size), static_cast<jint>(desc.offset),
                   view, values, nested);
}

jobject Conversion::convertIndex(const ox_index_desc_t& desc) {
  const jstring name = newString(desc.name);
  const jstring description = newString(desc.desc);
  const jobjectArray hints = convertHints(desc.hints);
  if (reportIfFailed("get index hints[]")) return nullptr;

  const jobjectArray fields = newArray(desc.num_fields, classes_.indexFieldDesc.cls);
  if (reportIfFailed("new index field")) return nullptr;
  jsize position = 0;
  for (const auto* member = desc.fields; member; member = member->next) {
    const jobject field = member->field ? convertField(fieldClasses(), *member->field) : nullptr;
    const jobject indexField =
        newObject(classes_.indexFieldDesc.cls, classes_.indexFieldDesc.ctor, field, member->param);
    if (reportIfFailed("new index field desc")) return nullptr;
    setElement(fields, position++, indexField);
    if (reportIfFailed("set index field desc array element")) return nullptr;
  }

  const jobject index =
      newObject(classes_.indexDesc.cls, classes_.indexDesc.ctor, name, description, hints, fields);
  return reportIfFailed("new index desc") ? nullptr : index;
}

void Conversion::convertMessage(const ox_message_desc_t& desc, jobject* out) {
  constexpr char kNewMessage[] = "new message desc";
  if (depth_ == kMaxDepth) {
    failed_ = true;
    reportFailure(kNewMessage);
    return;
  }
  ++depth_;
  const jstring name = newString(desc.name);
  const jstring description = newString(desc.desc);
  const jobjectArray hints = convertHints(desc.hints);
  if (reportIfFailed("get hints[]")) return;

  const jobjectArray fields = newArray(desc.num_fields, classes_.fieldDesc.cls);
  if (reportIfFailed("new field descs[]")) return;
  jsize position = 0;
  for (const auto* field = desc.fields; field && !failed(); field = field->next) {
    setElement(fields, position++, convertField(fieldClasses(), *field));
  }

  const jobjectArray indices = newArray(desc.num_indices, classes_.indexDesc.cls);
  if (reportIfFailed("new index desc")) return;
  position = 0;
  for (const auto* member = desc.indices; member; member = member->next) {
    const jobject index = convertIndex(*member);
    if (!index) return;
    setElement(indices, position++, index);
    if (reportIfFailed("set index desc array element")) return;
  }

  *out = newObject(classes_.messageDesc.cls, classes_.messageDesc.ctor,
                   static_cast<jlong>(desc.number), name, description, hints, fields, indices);
  static_cast<void>(reportIfFailed(kNewMessage));
  --depth_;
}

void Conversion::convertScheme(const ox_scheme_desc_t& desc, jobject scheme) {
  constexpr char kSetRef[] = "set scheme ref";
  if (reportIfFailed(kSetRef)) return;
  env_->CallVoidMethod(scheme, classes_.scheme.setRef, toHandle(&desc));
  if (reportIfFailed(kSetRef)) return;
  env_->CallVoidMethod(scheme, classes_.scheme.setType, static_cast<jlong>(desc.scheme_type));
  if (reportIfFailed("set scheme type")) return;
  env_->CallVoidMethod(scheme, classes_.scheme.setFeatures, static_cast<jlong>(desc.features));
  if (reportIfFailed("set scheme features")) return;

  const jobjectArray messages = newArray(desc.num_messages, classes_.messageDesc.cls);
  if (reportIfFailed("new message descs[]")) return;
  jsize position = 0;
  for (const auto* member = desc.messages; member; member = member->next) {
    jobject message = nullptr;
    convertMessage(*member, &message);
    setElement(messages, position++, message);
    if (reportIfFailed("set message desc array element")) return;
  }
  env_->CallVoidMethod(scheme, classes_.scheme.setMessages, messages);
  static_cast<void>(reportIfFailed("set messages descs"));
}

// Fills the Java `Scheme`. Returns OX_ERR_INTERNAL if `desc` is null, otherwise OX_ERR_OK, even if
// the conversion fails. A failure writes one or more lines. It leaves an exception pending, unless
// a limit is exceeded or a list of hints is circular.
jint fillScheme(JNIEnv* env, const JEnv& classes, const ox_scheme_desc_t* desc, jobject scheme) {
  if (!desc) return OX_ERR_INTERNAL;
  Conversion(env, classes).convertScheme(*desc, scheme);
  return OX_ERR_OK;
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

void createScheme(JNIEnv* env, const ox_scheme_desc_t* desc, jobject scheme) {
  runWithClasses([&](JEnv& classes) {
    if (env && desc && scheme) Conversion(env, classes).convertScheme(*desc, scheme);
  });
}

void create_message_desc(JNIEnv* env, const ox_message_desc_t* desc, jobject* out) {
  runWithClasses([&](JEnv& classes) {
    if (env && desc && out) Conversion(env, classes).convertMessage(*desc, out);
  });
}

jobject create_field_desc(JNIEnv* env, jclass fieldDesc, jmethodID fieldDescCtor,
                          jclass fieldValueDesc, jmethodID fieldValueDescCtor,
                          const ox_field_desc_t* desc) {
  return objectWithClasses([&](JEnv& classes) {
    const FieldClasses given{fieldDesc, fieldDescCtor, fieldValueDesc, fieldValueDescCtor};
    return env && desc ? Conversion(env, classes).convertField(given, *desc) : nullptr;
  });
}

jobjectArray getHints(JNIEnv* env, const ox_hint_t* hints) {
  return objectWithClasses<jobjectArray>(
      [&](JEnv& classes) { return env ? Conversion(env, classes).convertHints(hints) : nullptr; });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1newscheme(JNIEnv* env, jclass,
                                                                          jlong handle,
                                                                          jobject scheme) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    const auto* const record = fromHandle<ListenerData>(handle);
    if (!scheme || !record) return OX_ERR_INVALIDARGUMENT;
    ox_scheme_desc_t* desc = nullptr;
    if (const int result = ox_lsn_getscheme(record->lsn, &desc)) return result;
    return fillScheme(env, classes, desc, scheme);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1newscheme(JNIEnv* env, jclass,
                                                                          jlong handle,
                                                                          jobject scheme) {
  return resultWithClasses([&](JEnv& classes) -> jint {
    auto* const pub = fromHandle<ox_publisher_t>(handle);
    if (!scheme) return OX_ERR_INVALIDARGUMENT;
    ox_scheme_desc_t* desc = nullptr;
    if (const int result = ox_pub_getscheme(pub, &desc)) return result;
    return fillScheme(env, classes, desc, scheme);
  });
}
