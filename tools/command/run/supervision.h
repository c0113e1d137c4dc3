// The program as the command's only child: started, watched, told what the command is told.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <array>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace command {

class SUPERVISION {
 public:
  /// From now on signals wait for wait_for_end.
  SUPERVISION();
  /// Signals do again what they did.
  ~SUPERVISION();
  SUPERVISION(const SUPERVISION&) = delete;
  SUPERVISION& operator=(const SUPERVISION&) = delete;

  /// Makes the child, which waits for release(). Throws FAILURE. It executes `path` with the
  /// arguments `command`.
  pid_t fork_child(const std::string& path, const std::vector<std::string>& command);
  /// Lets the child execute the program. Throws FAILURE when it can't be executed.
  void release(const std::vector<std::string>& environment);

  /// Returns the child's status, as waitpid tells it. Signals that the child has not received
  /// itself are passed on, a termination after `before_termination`. Calls `look` every `period`,
  /// unless that is 0.
  int wait_for_end(std::chrono::milliseconds period, const std::function<void()>& look,
                   const std::function<void()>& before_termination);

 private:
  [[noreturn]] void become(const std::string& path, const std::vector<std::string>& command);
  void pass_on(const siginfo_t& signal, const std::function<void()>& before_termination) const;

  sigset_t m_watched{};
  sigset_t m_former{};
  struct sigaction m_former_child_action {};
  pid_t m_child = -1;
  std::string m_path;
  std::array<int, 2> m_go{};       // the environment, to the child
  std::array<int, 2> m_trouble{};  // why it could not become the program, from the child
};

/// Ends as the child did: with its status, or by its signal.
[[noreturn]] void end_like(int status);

}  // namespace command
