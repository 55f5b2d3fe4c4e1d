#include "test/server/proxy.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

#include "test/support/private_server.h"

namespace oxli::test {
namespace {

// Returns false at the end of the connection.
bool passSome(int from, int to) {
  char bytes[65536];
  const ssize_t size = read(from, bytes, sizeof bytes);
  if (size <= 0) return false;
  return to < 0 || send(to, bytes, static_cast<size_t>(size), MSG_NOSIGNAL) == size;
}

}  // namespace

Proxy::Proxy(int port) : listening_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = localAddress(0);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  if (bind(listening_, generic, size) != 0 || getsockname(listening_, generic, &size) != 0 ||
      listen(listening_, 5) != 0) {
    throw std::runtime_error("no port is free");
  }
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this, port] { run(port); });
}

Proxy::~Proxy() {
  ended_ = true;
  thread_.join();
  close(listening_);
}

void Proxy::cut() {
  replies_ = Replies::kAll;
  ++cuts_;
}

void Proxy::run(int serverPort) {
  while (!ended_) {
    pollfd waiting{listening_, POLLIN, 0};
    if (poll(&waiting, 1, 10) <= 0) continue;
    const int client = accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
    const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = localAddress(serverPort);
    if (connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
      pass(client, server);
    }
    close(client);
    close(server);
  }
}

void Proxy::pass(int client, int server) {
  const int cuts = cuts_;
  while (!ended_ && cuts == cuts_) {
    const Replies replies = replies_;
    pollfd waiting[] = {{client, POLLIN, 0},
                        {replies == Replies::kDelayed ? -1 : server, POLLIN, 0}};
    if (poll(waiting, 2, 10) <= 0) continue;
    if (waiting[0].revents != 0 && !passSome(client, server)) return;
    if (waiting[1].revents == 0) continue;
    if (!passSome(server, replies == Replies::kNone ? -1 : client)) return;
    if (replies == Replies::kOne) replies_ = Replies::kNone;
  }
}

}  // namespace oxli::test
