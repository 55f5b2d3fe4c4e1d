// The version as a string of the library: `strings liboxli_jni.so | grep liboxli_jni` shows which
// version a file is, without a virtual machine and whatever the file is called.

namespace oxli::jni {

namespace {

[[gnu::used]] const char kVersion[] = "liboxli_jni " OXLI_JNI_VERSION;

}  // namespace

}  // namespace oxli::jni
