// Defines the shared static objects of the JNI layer, in construction order: the language
// guarantees the order within one file, not across files. They are destroyed in reverse order when
// the library is unloaded. No JNIEnv is available then, so records that are still registered are
// not released.
#include <memory>

#include "jni/connection.h"
#include "jni/environment.h"
#include "jni/jenv/jenv.h"
#include "jni/listener.h"
#include "jni/publisher.h"
#include "jni/zblock.h"

namespace oxli::jni {

JEnv* JEnv::spInstance = nullptr;
JavaVM* JEnv::spVm = nullptr;

std::unique_ptr<ExitEventData> sExitEventData;

Registry<ox_conn_t, ConnData> ConnData::sConnDataMap;
Registry<ox_listener_t, ListenerData> ListenerData::sLsnMap;
Registry<ox_publisher_t, PublisherData> PublisherData::sPubMap;
Registry<ox_zblock_t, ZBlockData> ZBlockData::sZBlockMap;

}  // namespace oxli::jni
