#include "standin/redis/address.h"

#include <cstdint>

#include "standin/settings.h"

namespace standin::redis {
namespace {

constexpr const char* kForms =
    "server: the address is neither redis://[[user]:password@]host[:port] nor "
    "unix://[[user]:password@]/path";

int digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string decode(const std::string& string) {
  std::string decoded;
  for (std::size_t at = 0; at < string.size(); ++at) {
    if (string[at] != '%') {
      decoded += string[at];
      continue;
    }
    const int high = at + 2 < string.size() ? digit(string[at + 1]) : -1;
    const int low = at + 2 < string.size() ? digit(string[at + 2]) : -1;
    require(high >= 0 && low >= 0 && high + low > 0,
            "server: % is not followed by two hex digits other than 00");
    decoded += static_cast<char>(high * 16 + low);
    at += 2;
  }
  return decoded;
}

// Removes `prefix` from the string. Returns false if the string does not begin with it.
bool consume(std::string& string, const std::string& prefix) {
  if (string.compare(0, prefix.size(), prefix) != 0) return false;
  string.erase(0, prefix.size());
  return true;
}

void consumeLogin(std::string& rest, Address& address) {
  const std::size_t end = rest.substr(0, rest.find('/')).rfind('@');
  if (end == std::string::npos) return;
  const std::string login = rest.substr(0, end);
  rest.erase(0, end + 1);
  const std::size_t colon = login.find(':');
  require(colon != std::string::npos && colon + 1 < login.size(),
          "server: the password is missing or empty");
  address.user = decode(login.substr(0, colon));
  address.password = decode(login.substr(colon + 1));
}

void readHost(const std::string& rest, Address& address) {
  const bool bracketed = rest.front() == '[';
  const std::size_t end = bracketed ? rest.find(']') : rest.find(':');
  require(!bracketed || end != std::string::npos, kForms);
  address.host = bracketed ? rest.substr(1, end - 1) : rest.substr(0, end);
  const std::string port = end == std::string::npos ? "" : rest.substr(bracketed ? end + 1 : end);
  if (!port.empty()) {
    const auto number = toNumber<std::uint16_t>(port.substr(1));
    require(port.front() == ':' && number && *number > 0, "server: the port is invalid");
    address.port = port.substr(1);
  }
  require(!address.host.empty(), kForms);
  address.name =
      "redis://" + (bracketed ? '[' + address.host + ']' : address.host) + ':' + address.port;
}

}  // namespace

Address parseAddress(const std::string& string) {
  Address address;
  std::string rest = string;
  require(rest.find_first_of("\r\n \t") == std::string::npos, kForms);
  const bool isUnix = consume(rest, "unix://");
  require(isUnix || consume(rest, "redis://"), kForms);
  consumeLogin(rest, address);
  require(!rest.empty(), kForms);
  if (isUnix) {
    require(rest.front() == '/' && rest.size() > 1, kForms);
    address.path = decode(rest);
    address.name = "unix://" + address.path;
  } else {
    if (rest.size() > 1 && rest.back() == '/') rest.pop_back();
    require(rest.find_first_of("/?#@") == std::string::npos, kForms);
    readHost(rest, address);
  }
  return address;
}

std::string keysOf(const std::string& stream) {
  std::string escaped = stream.empty() ? "%" : "";
  for (const char c : stream) {
    if (c == '{') {
      escaped += "%7B";
    } else if (c == '}') {
      escaped += "%7D";
    } else if (c == '%') {
      escaped += "%25";
    } else {
      escaped += c;
    }
  }
  return "ox:{" + escaped + "}:";
}

}  // namespace standin::redis
