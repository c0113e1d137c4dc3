// The symbol server of one run, shared by all processes of it.
#pragma once

#include <sys/types.h>

#include <string>

namespace command {

class SYMBOL_SERVER {
 public:
  /// Starts the program at `path` and waits until it listens, two seconds at most; for an empty
  /// path, and when that fails, there is none, and each process finds symbols by itself.
  explicit SYMBOL_SERVER(const std::string& path);
  /// Lets go of it: it ends when no process of the run is connected any more.
  ~SYMBOL_SERVER();
  SYMBOL_SERVER(const SYMBOL_SERVER&) = delete;
  SYMBOL_SERVER& operator=(const SYMBOL_SERVER&) = delete;

  /// Where it listens, in a directory that only the user may enter; empty for none.
  const std::string& socket() const { return m_socket; }

 private:
  void start(const std::string& path);
  bool connect();

  std::string m_directory;
  std::string m_socket;
  pid_t m_pid = -1;
  int m_connection = -1;  // keeps it while the run has processes that come and go
};

}  // namespace command
