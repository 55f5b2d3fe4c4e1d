// Unloads the stand-in gateway right after its environment was closed: while the thread of
// exit_after waits, while its handler runs, and while its handler waits for the closing thread. A
// thread that outlives its code crashes; one that is waited for too long runs into the timeout.
#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>

#include "oxli.h"

namespace {

using namespace std::chrono_literals;

std::function<void()> onExit;

void require(bool held, const char* what) {
  if (held) return;
  std::fprintf(stderr, "unload_test: %s failed\n", what);
  std::exit(1);
}

// `onExit` is to be set before.
struct Library {
  Library(const char* path, const char* settings) : handle(dlopen(path, RTLD_NOW)) {
    require(handle != nullptr, "dlopen");
    latest = this;
    get<decltype(ox_env_register_exithandler)>("ox_env_register_exithandler")(
        [](void*) { onExit(); }, nullptr);
    require(get<decltype(ox_env_open)>("ox_env_open")(settings) == OX_ERR_OK, "ox_env_open");
  }
  template <class Function>
  Function* get(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(handle, name));
  }
  void close() const {
    require(get<decltype(ox_env_close)>("ox_env_close")() == OX_ERR_OK, "ox_env_close");
  }
  void unload() const { require(dlclose(handle) == 0, "dlclose"); }

  static inline const Library* latest = nullptr;
  void* const handle;
};

}  // namespace

int main(int, char** argv) {
  const char* const path = argv[1];
  onExit = [] { require(false, "waiting"); };
  for (int round = 0; round < 20; ++round) {
    const Library library(path, "exit_after=1000000");
    library.close();
    library.unload();
  }
  require(dlopen(path, RTLD_NOW | RTLD_NOLOAD) == nullptr, "unloading");

  std::atomic<int> handled{0};
  onExit = [&] {
    Library::latest->close();
    handled = 2;
    std::this_thread::sleep_for(20ms);
    handled = 3;
  };
  const Library closedByHandler(path, "exit_after=1");
  while (handled != 2) std::this_thread::yield();
  closedByHandler.unload();
  while (handled != 3) std::this_thread::yield();

  std::mutex mutex;
  std::unique_lock<std::mutex> held(mutex);
  onExit = [&] {
    handled = 4;
    const std::lock_guard<std::mutex> lock(mutex);
    handled = 5;
  };
  const Library closedBeside(path, "exit_after=1");
  while (handled != 4) std::this_thread::yield();
  closedBeside.close();
  closedBeside.unload();
  held.unlock();
  while (handled != 5) std::this_thread::yield();
  std::this_thread::sleep_for(20ms);  // the threads return from their handlers
}
