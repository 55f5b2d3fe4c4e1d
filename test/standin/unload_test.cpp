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

const char* path;
void* library;
std::function<void()> onExit;

void require(bool held, const char* what) {
  if (held) return;
  std::fprintf(stderr, "unload_test: %s failed\n", what);
  std::exit(1);
}

// Not linked: the library is loaded and unloaded.
template <class Function, class... Arguments>
void call(const char* name, Arguments... arguments) {
  require(reinterpret_cast<Function*>(dlsym(library, name))(arguments...) == OX_ERR_OK, name);
}

// `onExit` is to be set before.
void open(const char* settings) {
  library = dlopen(path, RTLD_NOW);
  require(library != nullptr, "dlopen");
  const ox_exit_cb_t callback = [](void*) { onExit(); };
  call<decltype(ox_env_register_exithandler)>("ox_env_register_exithandler", callback, nullptr);
  call<decltype(ox_env_open)>("ox_env_open", settings);
}

void close() {
  call<decltype(ox_env_close)>("ox_env_close");
}

void awaitValue(const std::atomic<int>& variable, int value) {
  while (variable != value) std::this_thread::yield();
}

}  // namespace

int main(int, char** argv) {
  path = argv[1];
  onExit = [] { require(false, "waiting"); };
  for (int round = 0; round < 20; ++round) {
    open("exit_after=1000000");
    close();
    dlclose(library);
  }
  require(dlopen(path, RTLD_NOW | RTLD_NOLOAD) == nullptr, "unloading");

  std::atomic<int> stage{0};
  onExit = [&] {
    close();
    stage = 1;
    std::this_thread::sleep_for(20ms);
    stage = 2;
  };
  open("exit_after=1");
  awaitValue(stage, 1);
  dlclose(library);
  awaitValue(stage, 2);

  std::mutex mutex;
  std::unique_lock<std::mutex> held(mutex);
  onExit = [&] {
    stage = 3;
    const std::lock_guard<std::mutex> lock(mutex);
    stage = 4;
  };
  open("exit_after=1");
  awaitValue(stage, 3);
  close();
  dlclose(library);
  held.unlock();
  awaitValue(stage, 4);
  std::this_thread::sleep_for(20ms);  // the threads return from their handlers
}
