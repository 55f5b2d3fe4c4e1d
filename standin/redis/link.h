// One connection to a server, for one thread.
#ifndef OXLI_STANDIN_REDIS_LINK_H
#define OXLI_STANDIN_REDIS_LINK_H

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "standin/redis/address.h"
#include "standin/redis/hiredis.h"
#include "standin/worker.h"

namespace standin::redis {

// Thrown when a connection is not established or cannot be used any more.
struct LinkError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A reply of the server. Its content is untrusted: the accessors check its type, and throw a
// LinkError if it is another one.
class Reply {
 public:
  explicit Reply(redisReply* reply) : owned_(reply), reply_(reply) {}

  bool isError() const { return reply_->type == REDIS_REPLY_ERROR; }
  bool isNil() const { return reply_->type == REDIS_REPLY_NIL; }
  bool isArray() const { return reply_->type == REDIS_REPLY_ARRAY; }
  // A string, a status or an error.
  std::string_view string() const;
  std::int64_t integer() const;               // an integer, or a string that is one
  std::size_t size() const;                   // of an array
  Reply operator[](std::size_t index) const;  // valid as long as the array

 private:
  struct Free {
    void operator()(redisReply* reply) const { hiredis().freeReply(reply); }
  };
  Reply(const redisReply* element, std::nullptr_t) : reply_(element) {}

  std::unique_ptr<redisReply, Free> owned_;
  const redisReply* reply_;
};

// Connects in the constructor. A function that waits throws a LinkError when the worker is stopped,
// or when the server does not respond within the timeout. Looking up a host's name is not limited
// by the timeout.
class Link {
 public:
  Link(const Address& address, std::chrono::milliseconds timeout, const Worker& worker);
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  // Adds a command to those that the next send() or receive() sends.
  void append(const std::vector<std::string_view>& command);
  // Sends appended commands, as far as that is possible without waiting.
  void send();
  // Returns the next reply. `extra` is added to the timeout.
  Reply receive(std::chrono::milliseconds extra = {});
  // The same. Throws a LinkError if the reply is an error.
  Reply receiveResult(std::chrono::milliseconds extra = {});
  // Sends one command and returns its reply. Throws a LinkError if that is an error.
  Reply call(const std::vector<std::string_view>& command, std::chrono::milliseconds extra = {});

 private:
  void connect(const Address& address);
  void connectTo(int family, const void* socketAddress, std::size_t size);
  void logIn(const Address& address);
  void await(short events, Clock::time_point until) const;
  [[noreturn]] void fail() const;

  const std::chrono::milliseconds timeout_;
  const Worker& worker_;
  redisContext* context_ = nullptr;
};

}  // namespace standin::redis

#endif  // OXLI_STANDIN_REDIS_LINK_H
