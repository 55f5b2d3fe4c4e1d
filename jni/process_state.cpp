// Every static object of the JNI layer, in construction order: the language guarantees that order
// within one file, not across files. They are destroyed in reverse order when the library is
// unloaded, without a JNIEnv to release the records that are still registered.
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
