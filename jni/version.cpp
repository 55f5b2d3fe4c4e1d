// Stores the version in the library, so that `strings liboxli_jni.so | grep liboxli_jni` prints the
// version of a file without a virtual machine, whatever its file name.

namespace oxli::jni {

namespace {

[[gnu::used]] const char kVersion[] = "liboxli_jni " OXLI_JNI_VERSION;

}  // namespace

}  // namespace oxli::jni
