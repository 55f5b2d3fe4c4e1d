// Runs a Redis or Valkey server for a test.
#ifndef OXLI_TEST_SUPPORT_PRIVATE_SERVER_H
#define OXLI_TEST_SUPPORT_PRIVATE_SERVER_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace oxli::test {

// Runs a server on a free port of 127.0.0.1, in a new folder. The destructor kills the server and
// deletes the folder. The kernel also kills the server when the thread that started it ends, so no
// server remains after the process.
class PrivateServer {
 public:
  // Starts the server with these options, and waits until it answers. Throws a std::runtime_error
  // if it does not.
  explicit PrivateServer(std::vector<std::string> options = {});
  ~PrivateServer();
  PrivateServer(const PrivateServer&) = delete;
  PrivateServer& operator=(const PrivateServer&) = delete;

  std::string address() const { return "redis://127.0.0.1:" + std::to_string(port_); }
  int port() const { return port_; }
  const std::string& folder() const { return folder_; }
  pid_t process() const { return process_; }
  void signal(int number) const;
  // Kills the server with SIGKILL and waits until it has ended.
  void kill();
  // Starts the server again after kill(), with the same port and folder.
  void start();
  // Sends a command and returns the beginning of the reply. The arguments are separated by spaces;
  // an argument in double quotes may contain escapes such as \x01.
  std::string command(const std::string& line) const;

 private:
  int port_ = 0;
  pid_t process_ = 0;
  std::string folder_;
  std::vector<std::string> options_;
};

// Starts a program: the first string is its path, the others are its arguments. Returns its process
// id. The kernel kills it when the calling thread ends.
pid_t startProcess(const std::vector<std::string>& program);
// Waits until a process of startProcess has ended. Returns its exit status, or -1 after a signal.
int endOf(pid_t process);

}  // namespace oxli::test

#endif  // OXLI_TEST_SUPPORT_PRIVATE_SERVER_H
