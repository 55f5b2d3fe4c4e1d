// Java's description of a scheme, made from the gateway's. What a conversion makes are local
// references that live until the calling native returns; buffers are views of the gateway's own
// bytes. A failed step writes its line and leaves its Java exception pending; what was made until
// then stays behind. A null text gives a null string, and a value that no Java buffer can hold
// gives a null buffer. The records must not change meanwhile. While the environment is closed, and
// with a null argument where something is to be read or filled, nothing happens and the result is
// null.
#ifndef OXLI_JNI_SCHEME_H
#define OXLI_JNI_SCHEME_H

#include <jni.h>

#include "oxli.h"

extern "C" {

// Fills a Java `Scheme`.
JNIEXPORT void createScheme(JNIEnv* env, const ox_scheme_desc_t* desc, jobject scheme);

// `out` receives the new `MessageDesc`, null when the last step could not make it; a conversion
// that ends earlier leaves it alone.
JNIEXPORT void create_message_desc(JNIEnv* env, const ox_message_desc_t* desc, jobject* out);

// A new `FieldDesc`, of the classes given. Writes no line of its own: null with the exception
// pending when it failed.
JNIEXPORT jobject create_field_desc(JNIEnv* env, jclass fieldDesc, jmethodID fieldDescCtor,
                                    jclass fieldValueDesc, jmethodID fieldValueDescCtor,
                                    const ox_field_desc_t* desc);

// A new array: key, value, key, value, in list order; empty for a null list. Fails as
// create_field_desc does.
JNIEXPORT jobjectArray getHints(JNIEnv* env, const ox_hint_t* hints);
}

#endif  // OXLI_JNI_SCHEME_H
