// Compares streams of one process with streams of two private servers, to which another process
// posts. One server writes each post to the disk before it acknowledges it; the other one writes to
// the disk every second. Prints a table for standin/README.md. An argument selects the figures
// whose names contain it; select the last three together, with "million".
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "oxli.h"
#include "standin/control.h"
#include "test/support/private_server.h"

namespace {

using oxli::test::PrivateServer;
using Clock = std::chrono::steady_clock;  // one clock for all processes

constexpr std::int64_t kRows = 1000000;

// The beginning of each payload.
struct Head {
  std::int64_t key;
  std::int64_t sent;  // nanoseconds
};

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "server_bench: %s failed\n", what);
  std::_Exit(1);
}
void check(int result, const char* what) {
  if (result != OX_ERR_OK) std::fprintf(stderr, "%#x\n", static_cast<unsigned>(result));
  require(result == OX_ERR_OK, what);
}

std::int64_t nanoseconds() {
  return Clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}
double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

ox_conn_t* connect(const std::string& settings) {
  ox_conn_t* conn = nullptr;
  check(ox_conn_new(settings.c_str(), &conn), "ox_conn_new");
  check(ox_conn_open(conn, "post_timeout=60000;log_limit=1073741824"), "ox_conn_open");
  return conn;
}

// What a publisher posts: messages or rows with the keys 0 to `count` - 1, with a pause of `gap`
// before each.
struct Posts {
  std::string stream;
  bool rows = false;
  std::size_t size = 64;
  std::int64_t count = 0;
  std::chrono::microseconds gap{0};
};

void publish(const std::string& settings, const Posts& posts) {
  ox_conn_t* const conn = connect(settings);
  const std::string rest = std::to_string(posts.size - sizeof(Head));
  const std::string publisher =
      "stream=" + posts.stream + (posts.rows ? ";mode=replica" : "") +
      ";scheme=?{messages=item;message.item=?{fields=key:i8,sent:i8,rest:c" + rest +
      ";indices=pk;index.pk=?{fields=key}}}";
  ox_publisher_t* pub = nullptr;
  ox_msg_t* msg = nullptr;
  check(ox_pub_new(conn, publisher.c_str(), &pub), "ox_pub_new");
  check(ox_pub_open(pub, ""), "ox_pub_open");
  check(ox_pub_msgnew(pub, OX_KEY_NAME, "item", &msg), "ox_pub_msgnew");
  for (std::int64_t key = 0; key < posts.count; ++key) {
    if (posts.gap.count() > 0) std::this_thread::sleep_for(posts.gap);
    const Head head{key, nanoseconds()};
    std::memcpy(msg->data, &head, sizeof head);
    check(ox_pub_post(pub, msg, 0), "ox_pub_post");
  }
  check(ox_pub_close(pub), "ox_pub_close");
  check(ox_conn_destroy(conn), "ox_conn_destroy");
}

struct Inbox {
  static int receive(ox_conn_t*, ox_listener_t*, ox_msg_t* msg, void* data) {
    auto& self = *static_cast<Inbox*>(data);
    if (msg->type == OX_MSG_ZRREPL_ONLINE) self.online = true;
    if (msg->type != OX_MSG_DATA && msg->type != OX_MSG_STREAM_DATA) return OX_ERR_OK;
    Head head{};
    std::memcpy(&head, msg->data, sizeof head);
    self.times.push_back(nanoseconds() - head.sent);
    return OX_ERR_OK;
  }
  // Makes and opens a listener on the stream.
  void listen(ox_conn_t* conn, const std::string& stream) {
    check(ox_lsn_new(conn, ("stream=" + stream).c_str(), receive, this, &lsn), "ox_lsn_new");
    check(ox_lsn_open(lsn, ""), "ox_lsn_open");
  }
  ox_listener_t* lsn = nullptr;
  std::vector<std::int64_t> times;
  bool online = false;
};

void processUntil(ox_conn_t* conn, const std::function<bool()>& done) {
  while (!done()) check(ox_conn_process(conn, 100, nullptr), "ox_conn_process");
}

long kilobytesOf(const char* key, const std::string& file) {
  std::ifstream status(file);
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(key, 0) == 0) return std::atol(line.c_str() + std::strlen(key));
  }
  return 0;
}
long residentMebibytes(pid_t process) {
  return kilobytesOf("VmRSS:", "/proc/" + std::to_string(process) + "/status") / 1024;
}

// A setup for streams: this process, or a private server with the given `appendfsync` setting.
class Setup {
 public:
  explicit Setup(std::string fsync = "") {
    if (fsync.empty()) return;
    server_ = std::make_unique<PrivateServer>(
        std::vector<std::string>{"--appendfsync", std::move(fsync)});
    settings_ = "server=" + server_->address() + ';';
  }

  // Returns messages or rows per second, from the start of the publisher to the last delivery.
  std::string throughput(bool rows, std::size_t size, std::int64_t count) {
    const Posts posts{nextStream(), rows, size, count, {}};
    Inbox inbox;
    ox_conn_t* const conn = connect(settings_);
    inbox.listen(conn, posts.stream + (rows ? ";mode=replica" : ""));
    const Clock::time_point start = Clock::now();
    run(posts, [&] {
      processUntil(conn, [&] { return inbox.times.size() == static_cast<std::size_t>(count); });
      seconds_ = secondsSince(start);
    });
    check(ox_conn_destroy(conn), "ox_conn_destroy");
    return number(static_cast<double>(count) / seconds_);
  }

  // Returns microseconds from the post to the delivery: median and 99th percentile.
  std::string latency(std::size_t size, std::int64_t count, std::chrono::microseconds gap) {
    const Posts posts{nextStream(), false, size, count, gap};
    Inbox inbox;
    ox_conn_t* const conn = connect(settings_);
    inbox.listen(conn, posts.stream);
    run(posts, [&] {
      processUntil(conn, [&] { return inbox.times.size() == static_cast<std::size_t>(count); });
    });
    check(ox_conn_destroy(conn), "ox_conn_destroy");
    std::sort(inbox.times.begin(), inbox.times.end());
    const auto at = [&](std::size_t percent) {
      return number(static_cast<double>(inbox.times[(inbox.times.size() - 1) * percent / 100]) /
                    1e3);
    };
    return at(50) + " / " + at(99);
  }

  // Returns the seconds until a new listener has a million rows. memory() then returns by how much
  // the memory of this process has grown and, with a server, the whole memory of the server.
  std::string snapshot() {
    malloc_trim(0);  // returns the free memory of earlier measurements to the system
    const long before = residentMebibytes(getpid());
    const std::string stream = nextStream();
    const Posts posts{stream, true, 64, kRows, {}};
    ox_conn_t* const conn = connect(settings_);
    // Without a server, the stream exists only while a listener or publisher is open on it.
    Inbox other;
    if (!server_) other.listen(conn, stream);
    run(posts, [&] {
      if (!server_) processUntil(conn, [&] { return other.times.size() == kRows; });
    });
    Inbox inbox;
    const Clock::time_point start = Clock::now();
    inbox.listen(conn, stream + ";mode=replica");
    processUntil(conn, [&] { return inbox.online; });
    const double seconds = secondsSince(start);
    require(inbox.times.size() == kRows, "the snapshot");
    memory_ = number(static_cast<double>(residentMebibytes(getpid()) - before)) + " MiB";
    if (server_) {
      memory_ +=
          " + " + number(static_cast<double>(residentMebibytes(server_->process()))) + " MiB";
    }
    check(ox_conn_destroy(conn), "ox_conn_destroy");
    return number(seconds, 1) + " s";
  }
  std::string memory() const { return memory_; }

  // Returns milliseconds from the start of a killed server until the connection is established.
  std::string readyAfterKill() {
    if (!server_) return "-";
    ox_conn_t* const conn = connect(settings_);
    const auto awaitState = [&](std::int32_t wanted) {
      processUntil(conn, [&] {
        std::int32_t state = 0;
        check(ox_conn_getstate(conn, &state), "ox_conn_getstate");
        return state == wanted;
      });
    };
    server_->kill();
    awaitState(standin::kOpening);
    const Clock::time_point start = Clock::now();
    server_->start();
    awaitState(standin::kActive);
    const double seconds = secondsSince(start);
    check(ox_conn_destroy(conn), "ox_conn_destroy");
    return number(seconds * 1e3) + " ms";
  }

 private:
  static std::string number(double value, int digits = 0) {
    char string[32];
    std::snprintf(string, sizeof string, "%.*f", digits, value);
    return string;
  }
  static std::string nextStream() {
    static int last = 0;
    return "bench" + std::to_string(++last);
  }
  // Publishes, in another process if there is a server, while the function runs.
  void run(const Posts& posts, const std::function<void()>& meanwhile) const {
    if (!server_) {
      std::thread publishing([&] { publish(settings_, posts); });
      meanwhile();
      publishing.join();
      return;
    }
    const pid_t process =
        oxli::test::startProcess({"/proc/self/exe", settings_, posts.stream, posts.rows ? "1" : "0",
                                  std::to_string(posts.size), std::to_string(posts.count),
                                  std::to_string(posts.gap.count())});
    meanwhile();
    require(oxli::test::endOf(process) == 0, "the publisher");
  }

  std::unique_ptr<PrivateServer> server_;
  std::string settings_;
  std::string memory_;
  double seconds_ = 0;
};

}  // namespace

int main(int count, char** arguments) {
  check(ox_env_open(""), "ox_env_open");
  if (count == 7) {
    publish(arguments[1],
            {arguments[2], *arguments[3] == '1', std::stoul(arguments[4]), std::stoll(arguments[5]),
             std::chrono::microseconds(std::stoll(arguments[6]))});
    return 0;
  }
  constexpr std::size_t kMebibyte = std::size_t{1} << 20;
  const struct {
    const char* name;
    std::function<std::string(Setup&)> measure;
  } figures[] = {
      {"messages a second, 64 bytes",
       [](Setup& setup) { return setup.throughput(false, 64, 200000); }},
      {"rows a second, 64 bytes", [](Setup& setup) { return setup.throughput(true, 64, 200000); }},
      {"messages a second, 1 MiB",
       [](Setup& setup) { return setup.throughput(false, kMebibyte, 200); }},
      {"one-way latency, 64 bytes: median / 99 %, microseconds",
       [](Setup& setup) { return setup.latency(64, 2000, std::chrono::milliseconds(1)); }},
      {"one-way latency, 1 MiB: median / 99 %, microseconds",
       [](Setup& setup) { return setup.latency(kMebibyte, 100, std::chrono::milliseconds(20)); }},
      {"ready after kill -9 of the server", [](Setup& setup) { return setup.readyAfterKill(); }},
      {"snapshot of a million rows of 64 bytes", [](Setup& setup) { return setup.snapshot(); }},
      {"memory with a million rows: process + server", [](Setup& setup) { return setup.memory(); }},
      {"ready after kill -9 of the server with a million rows",
       [](Setup& setup) { return setup.readyAfterKill(); }},
  };
  Setup inProcess, every("everysec"), always("always");
  std::printf("| | in-process | server, on disk every second | server, each post on disk |\n");
  std::printf("|---|---|---|---|\n");
  for (const auto& figure : figures) {
    if (count == 2 && !std::strstr(figure.name, arguments[1])) continue;
    std::printf("| %s", figure.name);
    for (Setup* setup : {&inProcess, &every, &always}) {
      std::printf(" | %s", figure.measure(*setup).c_str());
      std::fflush(stdout);
    }
    std::printf(" |\n");
  }
  check(ox_env_close(), "ox_env_close");
  return 0;
}
