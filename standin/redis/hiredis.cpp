#include "standin/redis/hiredis.h"

#include <dlfcn.h>

#include "standin/control.h"
#include "standin/settings.h"

namespace standin::redis {
namespace {

class Library {
 public:
  Library() : handle_(dlopen(OXLI_HIREDIS, RTLD_NOW | RTLD_LOCAL)) { requireLoaded(handle_); }

  template <class Function>
  void load(Function& function, const char* name) const {
    void* const symbol = dlsym(handle_, name);
    requireLoaded(symbol);
    function = reinterpret_cast<Function>(symbol);
  }

 private:
  static void requireLoaded(const void* loaded) {
    if (loaded) return;
    const char* const reason = dlerror();
    throw Refusal{kNoServer, std::string("server: ") +
                                 (reason ? reason : OXLI_HIREDIS " cannot be loaded") +
                                 "; install the package " OXLI_HIREDIS_PACKAGE};
  }

  void* const handle_;
};

Hiredis load() {
  const Library library;
  Hiredis loaded{};
  library.load(loaded.connectFd, "redisConnectFd");
  library.load(loaded.free, "redisFree");
  library.load(loaded.appendCommandArgv, "redisAppendCommandArgv");
  library.load(loaded.getReplyFromReader, "redisGetReplyFromReader");
  library.load(loaded.bufferRead, "redisBufferRead");
  library.load(loaded.bufferWrite, "redisBufferWrite");
  library.load(loaded.freeReply, "freeReplyObject");
  return loaded;
}

}  // namespace

const Hiredis& hiredis() {
  static const Hiredis loaded = load();
  return loaded;
}

}  // namespace standin::redis
