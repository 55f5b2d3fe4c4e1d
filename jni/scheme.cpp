#include "jni/scheme.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "jni/base/failure.h"
#include "jni/base/handles.h"
#include "jni/base/load.h"
#include "jni/jenv/with_cache.h"
#include "jni/listener.h"
#include "org_quendel_oxli_impl_OxliImpl.h"

namespace oxli::jni {

namespace {

// How many local references a conversion makes.

jlong countOf(const ox_hint_t* hints) {
  jlong count = 1;
  for (const auto* hint = hints; hint; hint = hint->next) count += 2;
  return count;
}

jlong countOf(const ox_message_desc_t& message);

jlong countOf(const ox_field_desc_t& field) {
  jlong count = 6 + (field.msg ? countOf(*field.msg) : 0);
  for (const auto* value = field.values; value; value = value->next) count += 4;
  return count;
}

jlong countOf(const ox_index_desc_t& index) {
  jlong count = 4 + countOf(index.hints);
  for (const auto* member = index.fields; member; member = member->next) {
    count += 1 + (member->field ? countOf(*member->field) : 0);
  }
  return count;
}

jlong countOf(const ox_message_desc_t& message) {
  jlong count = 5 + countOf(message.hints);
  for (const auto* field = message.fields; field; field = field->next) count += countOf(*field);
  for (const auto* index = message.indices; index; index = index->next) count += countOf(*index);
  return count;
}

jlong countOf(const ox_scheme_desc_t& scheme) {
  jlong count = 1;
  for (const auto* message = scheme.messages; message; message = message->next) {
    count += countOf(*message);
  }
  return count;
}

// Announces them, as far as virtual machines let one: they make more all the same, but those that
// check complain. An exception is left for the next step.
void makeRoom(JNIEnv* env, jlong count) {
  constexpr jlong kMost = 65536;
  if (exceptionPending(env)) return;
  static_cast<void>(env->EnsureLocalCapacity(static_cast<jint>(std::min(count, kMost))));
}

// The steps of a conversion. Each is left out once an exception is pending, so that the next check
// with a line of its own can report it.

jstring newText(JNIEnv* env, const char* text) {
  return text && !exceptionPending(env) ? env->NewStringUTF(text) : nullptr;
}

// None for what no Java buffer can hold.
jobject newView(JNIEnv* env, const void* bytes, std::size_t size) {
  constexpr auto kMost = std::size_t{std::numeric_limits<jint>::max()};
  if (!bytes || size > kMost || exceptionPending(env)) return nullptr;
  return env->NewDirectByteBuffer(const_cast<void*>(bytes), static_cast<jlong>(size));
}

template <class Count>
jobjectArray newArray(JNIEnv* env, Count count, jclass cls) {
  if (exceptionPending(env)) return nullptr;
  return env->NewObjectArray(static_cast<jsize>(count), cls, nullptr);
}

template <class... Args>
jobject newObject(JNIEnv* env, jclass cls, jmethodID ctor, Args... args) {
  return exceptionPending(env) ? nullptr : env->NewObject(cls, ctor, args...);
}

// A list that is longer than its count says ends in ArrayIndexOutOfBoundsException.
void store(JNIEnv* env, jobjectArray array, jsize position, jobject element) {
  if (!exceptionPending(env)) env->SetObjectArrayElement(array, position, element);
}

struct FieldClasses {
  jclass field;
  jmethodID fieldCtor;
  jclass value;
  jmethodID valueCtor;
};

FieldClasses cachedFieldClasses(const JEnv& cache) {
  return {cache.fieldDesc.cls, cache.fieldDesc.ctor, cache.fieldValueDesc.cls,
          cache.fieldValueDesc.ctor};
}

jobjectArray newHints(JNIEnv* env, const JEnv& cache, const ox_hint_t* hints) {
  jsize texts = 0;
  for (const auto* hint = hints; hint; hint = hint->next) texts += 2;
  const jobjectArray array = newArray(env, texts, cache.string.cls);
  if (!array) return nullptr;
  jsize position = 0;
  for (const auto* hint = hints; hint && !exceptionPending(env); hint = hint->next) {
    store(env, array, position++, newText(env, hint->key));
    store(env, array, position++, newText(env, hint->value));
  }
  return array;
}

// What a named value stands for, sign-extended for unsigned fields too; -1 when it is no integer.
jlong integerOf(const ox_field_desc_t& field, const ox_field_value_desc_t& value) {
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

void convertMessage(JNIEnv* env, const JEnv& cache, const ox_message_desc_t& desc, jobject* out);

jobject convertField(JNIEnv* env, const JEnv& cache, const FieldClasses& classes,
                     const ox_field_desc_t& desc) {
  const jstring name = newText(env, desc.name);
  const jstring text = newText(env, desc.desc);
  const jstring type = newText(env, desc.type);
  const jobject view = newView(env, desc.value, desc.size);
  const jobjectArray values = newArray(env, desc.num_values, classes.value);
  if (!values) return nullptr;

  jsize position = 0;
  for (const auto* value = desc.values; value && !exceptionPending(env); value = value->next) {
    const jstring valueName = newText(env, value->name);
    const jstring valueText = newText(env, value->desc);
    const jobject valueView = newView(env, value->value, desc.size);
    store(env, values, position++,
          newObject(env, classes.value, classes.valueCtor, valueName, valueText, valueView,
                    integerOf(desc, *value)));
  }

  jobject nested = nullptr;
  if (desc.msg && !exceptionPending(env)) convertMessage(env, cache, *desc.msg, &nested);
  return newObject(env, classes.field, classes.fieldCtor, static_cast<jlong>(desc.number), name,
                   text, type, static_cast<jint>(desc.size), static_cast<jint>(desc.offset), view,
                   values, nested);
}

jobject convertIndex(JNIEnv* env, const JEnv& cache, const ox_index_desc_t& desc) {
  const jstring name = newText(env, desc.name);
  const jstring text = newText(env, desc.desc);
  const jobjectArray hints = newHints(env, cache, desc.hints);
  if (notMade(env, hints, "get index hints[]")) return nullptr;

  const jobjectArray fields = newArray(env, desc.num_fields, cache.indexFieldDesc.cls);
  if (notMade(env, fields, "new index field")) return nullptr;
  jsize position = 0;
  for (const auto* member = desc.fields; member; member = member->next) {
    const jobject field = member->field
                              ? convertField(env, cache, cachedFieldClasses(cache), *member->field)
                              : nullptr;
    const jobject made =
        newObject(env, cache.indexFieldDesc.cls, cache.indexFieldDesc.ctor, field, member->param);
    if (notMade(env, made, "new index field desc")) return nullptr;
    store(env, fields, position++, made);
    if (javaFailed(env, "set index field desc array element")) return nullptr;
  }

  const jobject index =
      newObject(env, cache.indexDesc.cls, cache.indexDesc.ctor, name, text, hints, fields);
  return notMade(env, index, "new index desc") ? nullptr : index;
}

void convertMessage(JNIEnv* env, const JEnv& cache, const ox_message_desc_t& desc, jobject* out) {
  const jstring name = newText(env, desc.name);
  const jstring text = newText(env, desc.desc);
  const jobjectArray hints = newHints(env, cache, desc.hints);
  if (notMade(env, hints, "get hints[]")) return;

  const jobjectArray fields = newArray(env, desc.num_fields, cache.fieldDesc.cls);
  if (notMade(env, fields, "new field descs[]")) return;
  jsize position = 0;
  for (const auto* field = desc.fields; field && !exceptionPending(env); field = field->next) {
    store(env, fields, position++, convertField(env, cache, cachedFieldClasses(cache), *field));
  }

  const jobjectArray indices = newArray(env, desc.num_indices, cache.indexDesc.cls);
  if (notMade(env, indices, "new index desc")) return;
  position = 0;
  for (const auto* member = desc.indices; member; member = member->next) {
    const jobject index = convertIndex(env, cache, *member);
    if (!index) return;
    store(env, indices, position++, index);
    if (javaFailed(env, "set index desc array element")) return;
  }

  *out = newObject(env, cache.messageDesc.cls, cache.messageDesc.ctor,
                   static_cast<jlong>(desc.number), name, text, hints, fields, indices);
  static_cast<void>(notMade(env, *out, "new message desc"));
}

void convertScheme(JNIEnv* env, const JEnv& cache, const ox_scheme_desc_t& desc, jobject scheme) {
  constexpr char kSetRef[] = "set scheme ref";
  constexpr char kSetElement[] = "set message desc array element";
  makeRoom(env, countOf(desc));
  // The caller may have left one pending.
  if (javaFailed(env, kSetRef)) return;
  env->CallVoidMethod(scheme, cache.scheme.setRef, toHandle(&desc));
  if (javaFailed(env, kSetRef)) return;
  env->CallVoidMethod(scheme, cache.scheme.setType, static_cast<jlong>(desc.scheme_type));
  if (javaFailed(env, "set scheme type")) return;
  env->CallVoidMethod(scheme, cache.scheme.setFeatures, static_cast<jlong>(desc.features));
  if (javaFailed(env, "set scheme features")) return;

  const jobjectArray messages = newArray(env, desc.num_messages, cache.messageDesc.cls);
  if (notMade(env, messages, "new message descs[]")) return;
  jsize position = 0;
  for (const auto* member = desc.messages; member; member = member->next) {
    jobject message = nullptr;
    convertMessage(env, cache, *member, &message);
    store(env, messages, position++, message);
    if (javaFailed(env, kSetElement)) return;
  }
  env->CallVoidMethod(scheme, cache.scheme.setMessages, messages);
  static_cast<void>(javaFailed(env, "set messages descs"));
}

// How a conversion ended shows in the pending exception alone.
jint fillScheme(JNIEnv* env, const JEnv& cache, const ox_scheme_desc_t* desc, jobject scheme) {
  if (!desc) return OX_ERR_INTERNAL;
  convertScheme(env, cache, *desc, scheme);
  return OX_ERR_OK;
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

void createScheme(JNIEnv* env, const ox_scheme_desc_t* desc, jobject scheme) {
  doWithCache([&](JEnv& cache) {
    if (desc && scheme) convertScheme(env, cache, *desc, scheme);
  });
}

void create_message_desc(JNIEnv* env, const ox_message_desc_t* desc, jobject* out) {
  doWithCache([&](JEnv& cache) {
    if (!desc || !out) return;
    makeRoom(env, countOf(*desc));
    convertMessage(env, cache, *desc, out);
  });
}

jobject create_field_desc(JNIEnv* env, jclass fieldDesc, jmethodID fieldDescCtor,
                          jclass fieldValueDesc, jmethodID fieldValueDescCtor,
                          const ox_field_desc_t* desc) {
  return objectWithCache([&](JEnv& cache) -> jobject {
    const FieldClasses classes{fieldDesc, fieldDescCtor, fieldValueDesc, fieldValueDescCtor};
    if (!desc) return nullptr;
    makeRoom(env, countOf(*desc));
    return convertField(env, cache, classes, *desc);
  });
}

jobjectArray getHints(JNIEnv* env, const ox_hint_t* hints) {
  return objectWithCache<jobjectArray>([&](JEnv& cache) {
    makeRoom(env, countOf(hints));
    return newHints(env, cache, hints);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_lsn_1newscheme(JNIEnv* env, jclass,
                                                                          jlong handle,
                                                                          jobject scheme) {
  return resultWithCache([&](JEnv& cache) -> jint {
    const auto* const record = fromHandle<ListenerData>(handle);
    if (!scheme || !record) return OX_ERR_INVALIDARGUMENT;
    ox_scheme_desc_t* desc = nullptr;
    if (const int result = ox_lsn_getscheme(record->lsn, &desc)) return result;
    return fillScheme(env, cache, desc, scheme);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_pub_1newscheme(JNIEnv* env, jclass,
                                                                          jlong handle,
                                                                          jobject scheme) {
  return resultWithCache([&](JEnv& cache) -> jint {
    auto* const pub = fromHandle<ox_publisher_t>(handle);
    if (!scheme || !pub) return OX_ERR_INVALIDARGUMENT;
    ox_scheme_desc_t* desc = nullptr;
    if (const int result = ox_pub_getscheme(pub, &desc)) return result;
    return fillScheme(env, cache, desc, scheme);
  });
}
