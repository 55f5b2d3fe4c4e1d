#include "test/support/private_server.h"

#include <arpa/inet.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <utility>

namespace oxli::test {
namespace {

// Returns the address of a port of this machine; port 0 stands for a free one.
sockaddr_in localAddress(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

int freePort() {
  sockaddr_in address = localAddress(0);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  const bool bound = bind(fd, generic, size) == 0 && getsockname(fd, generic, &size) == 0;
  close(fd);
  if (!bound) throw std::runtime_error("no port is free");
  return ntohs(address.sin_port);
}

}  // namespace

pid_t startProcess(const std::vector<std::string>& program) {
  std::vector<char*> arguments;
  for (const std::string& part : program) arguments.push_back(const_cast<char*>(part.c_str()));
  arguments.push_back(nullptr);
  const pid_t process = fork();
  if (process < 0) throw std::runtime_error("no process can be started");
  if (process > 0) return process;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  execv(arguments[0], arguments.data());
  _exit(127);
}

int endOf(pid_t process) {
  int status = 0;
  waitpid(process, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

PrivateServer::PrivateServer(std::vector<std::string> options)
    : port_(freePort()), options_(std::move(options)) {
  std::string folder = (std::filesystem::temp_directory_path() / "oxli-server-XXXXXX").string();
  if (!mkdtemp(folder.data())) throw std::runtime_error("no folder can be made");
  folder_ = folder;
  start();
}

PrivateServer::~PrivateServer() {
  kill();
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void PrivateServer::signal(int number) const {
  if (process_ > 0) ::kill(process_, number);
}

void PrivateServer::kill() {
  if (process_ == 0) return;
  signal(SIGKILL);
  endOf(std::exchange(process_, 0));
}

void PrivateServer::start() {
  std::vector<std::string> program = {OXLI_PRIVATE_SERVER, "run", folder_, std::to_string(port_)};
  program.insert(program.end(), options_.begin(), options_.end());
  process_ = startProcess(program);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  for (;;) {
    const std::string reply = command("PING");
    // A server that requires a password replies NOAUTH.
    if (reply == "+PONG\r\n" || reply.rfind("-NOAUTH", 0) == 0) return;
    if (std::chrono::steady_clock::now() > deadline || waitpid(process_, nullptr, WNOHANG) != 0) {
      throw std::runtime_error("the server does not answer");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

std::string PrivateServer::command(const std::string& line) const {
  const std::string request = line + "\r\n";
  const sockaddr_in address = localAddress(port_);
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  std::string reply;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0) {
    reply.resize(65536);
    const ssize_t size = read(fd, reply.data(), reply.size());
    reply.resize(size > 0 ? static_cast<size_t>(size) : 0);
  }
  close(fd);
  return reply;
}

}  // namespace oxli::test
