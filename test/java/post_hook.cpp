// Preloaded into virtual machines of tests: a gateway that calls the application back, through
// Misuse.insidePost, from inside each ox_pub_post.
#include <dlfcn.h>
#include <jni.h>

#include "oxli.h"

namespace {

void callJava() {
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
  const jmethodID insidePost = env->GetStaticMethodID(misuse, "insidePost", "()V");
  if (insidePost) env->CallStaticVoidMethod(misuse, insidePost);
}

}  // namespace

int ox_pub_post(ox_publisher_t* pub, ox_msg_t* msg, int flags) {
  callJava();
  void* const gateway = dlopen("liboxli.so", RTLD_NOW | RTLD_NOLOAD);
  const auto post = reinterpret_cast<decltype(&ox_pub_post)>(dlsym(gateway, "ox_pub_post"));
  const int result = post(pub, msg, flags);
  dlclose(gateway);
  return result;
}
