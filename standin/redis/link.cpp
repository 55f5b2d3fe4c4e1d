#include "standin/redis/link.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "standin/settings.h"

namespace standin::redis {
namespace {

std::string systemError(const char* step) {
  return std::string(step) + ": " + std::strerror(errno);
}

struct FreeAddresses {
  void operator()(addrinfo* list) const { freeaddrinfo(list); }
};

}  // namespace

std::string_view Reply::string() const {
  const bool hasString = reply_->type == REDIS_REPLY_STRING || reply_->type == REDIS_REPLY_STATUS ||
                         reply_->type == REDIS_REPLY_ERROR;
  if (!hasString) throw LinkError{"the server's reply is not a string"};
  return {reply_->str, reply_->len};
}

std::int64_t Reply::integer() const {
  if (reply_->type == REDIS_REPLY_INTEGER) return reply_->integer;
  const auto number = toNumber<std::int64_t>(std::string(string()));
  if (!number) throw LinkError{"the server's reply is not a number"};
  return *number;
}

std::size_t Reply::size() const {
  if (!isArray()) throw LinkError{"the server's reply is not an array"};
  return reply_->elements;
}

Reply Reply::operator[](std::size_t index) const {
  if (index >= size()) throw LinkError{"the server's reply is too short"};
  return {reply_->element[index], nullptr};
}

Link::Link(const Address& address, std::chrono::milliseconds timeout, const Worker& worker)
    : timeout_(timeout), worker_(worker) {
  try {
    connect(address);
    logIn(address);
  } catch (...) {
    if (context_) hiredis().free(context_);
    throw;
  }
}

Link::~Link() {
  hiredis().free(context_);
}

void Link::connect(const Address& address) {
  if (address.host.empty()) {
    sockaddr_un path{};
    path.sun_family = AF_UNIX;
    if (address.path.size() >= sizeof path.sun_path) {
      throw LinkError{"the path of the socket is too long"};
    }
    address.path.copy(path.sun_path, sizeof path.sun_path - 1);
    return connectTo(AF_UNIX, &path, sizeof path);
  }
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  const int result = getaddrinfo(address.host.c_str(), address.port.c_str(), &hints, &list);
  if (result != 0) {
    throw LinkError{"the host's name cannot be looked up: " + std::string(gai_strerror(result))};
  }
  const std::unique_ptr<addrinfo, FreeAddresses> owned(list);
  for (const addrinfo* each = list;; each = each->ai_next) {
    try {
      return connectTo(each->ai_family, each->ai_addr, each->ai_addrlen);
    } catch (const LinkError&) {
      if (!each->ai_next || worker_.isStopped()) throw;
    }
  }
}

void Link::connectTo(int family, const void* socketAddress, std::size_t size) {
  const int fd = socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) throw LinkError{systemError("socket")};
  context_ = hiredis().connectFd(fd);
  if (!context_) {
    ::close(fd);
    throw LinkError{"no memory"};
  }
  context_->flags &= ~REDIS_BLOCK;
  try {
    const auto* const target = static_cast<const sockaddr*>(socketAddress);
    if (::connect(fd, target, static_cast<socklen_t>(size)) != 0) {
      if (errno != EINPROGRESS) throw LinkError{systemError("connect")};
      await(POLLOUT, Clock::now() + timeout_);
      socklen_t length = sizeof errno;
      int error = 0;
      getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length);
      errno = error;
      if (error != 0) throw LinkError{systemError("connect")};
    }
    const int on = 1;
    if (family != AF_UNIX) setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  } catch (...) {
    hiredis().free(std::exchange(context_, nullptr));
    throw;
  }
}

void Link::logIn(const Address& address) {
  if (address.password.empty()) {
    call({"PING"});  // refused if a password is needed
    return;
  }
  std::vector<std::string_view> command = {"AUTH", address.user, address.password};
  if (address.user.empty()) command.erase(command.begin() + 1);
  append(command);
  const Reply reply = receive();
  if (!reply.isError()) return;
  // The rest of the error may contain the password.
  const std::string_view error = reply.string();
  throw LinkError{"the server refuses the login: " + std::string(error.substr(0, error.find(' ')))};
}

void Link::append(const std::vector<std::string_view>& command) {
  std::vector<const char*> strings;
  std::vector<std::size_t> sizes;
  for (const std::string_view part : command) {
    strings.push_back(part.data() ? part.data() : "");
    sizes.push_back(part.size());
  }
  if (hiredis().appendCommandArgv(context_, static_cast<int>(command.size()), strings.data(),
                                  sizes.data()) != REDIS_OK) {
    fail();
  }
}

void Link::send() {
  int sent = 0;
  if (hiredis().bufferWrite(context_, &sent) != REDIS_OK) fail();
}

Reply Link::receive(std::chrono::milliseconds extra) {
  for (auto until = Clock::now() + timeout_ + extra;;) {
    void* reply = nullptr;
    if (hiredis().getReplyFromReader(context_, &reply) != REDIS_OK) fail();
    if (reply) return Reply(static_cast<redisReply*>(reply));
    int sent = 0;
    if (hiredis().bufferWrite(context_, &sent) != REDIS_OK) fail();
    await(sent ? POLLIN : POLLIN | POLLOUT, until);
    if (hiredis().bufferRead(context_) != REDIS_OK) fail();
    // A reply may take longer than the timeout as long as bytes of it arrive.
    until = std::max(until, Clock::now() + timeout_);
  }
}

Reply Link::receiveResult(std::chrono::milliseconds extra) {
  Reply reply = receive(extra);
  if (reply.isError()) {
    throw LinkError{"the server refuses a command: " + std::string(reply.string())};
  }
  return reply;
}

Reply Link::call(const std::vector<std::string_view>& command, std::chrono::milliseconds extra) {
  append(command);
  return receiveResult(extra);
}

void Link::await(short events, Clock::time_point until) const {
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
    if (left <= 0) throw LinkError{"the server does not answer in time"};
    pollfd waiting[] = {{context_->fd, events, 0}, {worker_.stopEvent(), POLLIN, 0}};
    const int ready = poll(waiting, 2, static_cast<int>(std::min<std::int64_t>(left, INT_MAX)));
    if (ready < 0 && errno != EINTR) throw LinkError{systemError("poll")};
    if (waiting[1].revents != 0) throw LinkError{"stopped"};
    if (ready > 0) return;
  }
}

void Link::fail() const {
  throw LinkError{context_->errstr};
}

}  // namespace standin::redis
