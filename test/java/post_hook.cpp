// Natives of tests. Preloaded into a virtual machine, the library wraps functions of the gateway:
// ox_pub_post and ox_pub_msgfree call static methods of Misuse before the gateway's function, and
// ox_pub_getscheme makes the hints of a message named "endless" a circular list.
#include <dlfcn.h>
#include <jni.h>

#include <cstring>

#include "org_quendel_oxli_ExitEventTest.h"
#include "oxli.h"
#include "standin/control.h"

namespace {

// Calls a static method of Misuse.
void callJava(const char* method) {
  JavaVM* vm = nullptr;
  jsize count = 0;
  void* attached = nullptr;
  // The virtual machine is loaded after this library.
  const auto getVms = reinterpret_cast<decltype(&JNI_GetCreatedJavaVMs)>(
      dlsym(RTLD_DEFAULT, "JNI_GetCreatedJavaVMs"));
  getVms(&vm, 1, &count);
  vm->GetEnv(&attached, JNI_VERSION_1_6);
  auto* const env = static_cast<JNIEnv*>(attached);
  const jclass misuse = env->FindClass("org/quendel/oxli/Misuse");
  if (!misuse) return;
  const jmethodID called = env->GetStaticMethodID(misuse, method, "()V");
  if (called) env->CallStaticVoidMethod(misuse, called);
}

// Returns the gateway's function of the name and type.
template <class Function>
Function gateway(const char* name, Function) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

int ox_pub_post(ox_publisher_t* pub, ox_msg_t* msg, int flags) {
  callJava("insidePost");
  return gateway(__func__, &ox_pub_post)(pub, msg, flags);
}

int ox_pub_getscheme(ox_publisher_t* pub, ox_scheme_desc_t** scheme) {
  static ox_hint_t endless = {&endless, "key", "value"};
  const int result = gateway(__func__, &ox_pub_getscheme)(pub, scheme);
  if (result == OX_ERR_OK && std::strcmp((*scheme)->messages->name, "endless") == 0) {
    (*scheme)->messages->hints = &endless;
  }
  return result;
}

int ox_pub_msgfree(ox_publisher_t* pub, ox_msg_t* msg) {
  callJava("released");
  return gateway(__func__, &ox_pub_msgfree)(pub, msg);
}

void Java_org_quendel_oxli_ExitEventTest_raiseExit(JNIEnv*, jclass) {
  standin::raiseExit();
}
