// A Redis or Valkey server of a test's own.
#ifndef OXLI_TEST_SUPPORT_PRIVATE_SERVER_H
#define OXLI_TEST_SUPPORT_PRIVATE_SERVER_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace oxli::test {

// On a free port of 127.0.0.1, in a folder of its own. The server ends with the object, and also
// with the process, however that ends.
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
  void kill();   // with SIGKILL, and waits
  void start();  // again, with the same port and folder
  // Sends a command, whose arguments are separated by spaces, and returns the beginning of the
  // reply.
  std::string command(const std::string& line) const;

 private:
  int port_ = 0;
  pid_t process_ = 0;
  std::string folder_;
  std::vector<std::string> options_;
};

// Runs a program whose first part is its path. It is killed when this process ends.
pid_t startProcess(const std::vector<std::string>& program);
// Waits for such a process. Returns its exit status, or -1 after a signal.
int endOf(pid_t process);

}  // namespace oxli::test

#endif  // OXLI_TEST_SUPPORT_PRIVATE_SERVER_H
