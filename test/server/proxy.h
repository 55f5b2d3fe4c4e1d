// A connection to a server on which replies can get lost.
#ifndef OXLI_TEST_SERVER_PROXY_H
#define OXLI_TEST_SERVER_PROXY_H

#include <atomic>
#include <string>
#include <thread>

namespace oxli::test {

// Passes one connection at a time to the server at a port of this machine.
class Proxy {
 public:
  explicit Proxy(int port);
  ~Proxy();
  Proxy(const Proxy&) = delete;
  Proxy& operator=(const Proxy&) = delete;

  std::string address() const { return "redis://127.0.0.1:" + std::to_string(port_); }
  void delayReplies() { replies_ = Replies::kDelayed; }
  // Passes the next reply and loses those after it.
  void passOneReply() { replies_ = Replies::kOne; }
  // Breaks the connection. Replies of later ones are passed.
  void cut();

 private:
  enum class Replies { kAll, kDelayed, kOne, kNone };

  void run(int serverPort);
  void pass(int client, int server);

  int listening_ = -1;
  int port_ = 0;
  std::atomic<Replies> replies_{Replies::kAll};
  std::atomic<int> cuts_{0};
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

}  // namespace oxli::test

#endif  // OXLI_TEST_SERVER_PROXY_H
