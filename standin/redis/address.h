// Addresses of servers.
#ifndef OXLI_STANDIN_REDIS_ADDRESS_H
#define OXLI_STANDIN_REDIS_ADDRESS_H

#include <string>

namespace standin::redis {

// redis://[[user]:password@]host[:port] or unix://[[user]:password@]/path. An IPv6 address is in
// brackets. In user, password and path, %XX stands for a byte, such as %3B for a semicolon.
struct Address {
  std::string user, password;  // empty if there is none
  std::string host;            // empty for a Unix socket
  std::string port = "6379";
  std::string path;  // of a Unix socket
  std::string name;  // the address without user and password
};

// Refuses an invalid string with OX_ERR_INVALIDARGUMENT. The reason does not contain the string,
// which may contain a password.
Address parseAddress(const std::string& string);

// Returns the beginning of the keys of a stream. The name of the stream may be any string.
std::string keysOf(const std::string& stream);

}  // namespace standin::redis

#endif  // OXLI_STANDIN_REDIS_ADDRESS_H
