// The line on a terminal that tells how the program is doing.
#pragma once

#include <sys/types.h>

#include <chrono>

namespace command {

class PROGRESS {
 public:
  explicit PROGRESS(pid_t process) : m_process(process) {}

  /// Writes the line over the former one: the time since the start, and what the process holds now.
  void show();
  /// Takes the line away.
  void clear() const;

 private:
  pid_t m_process;
  std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
  bool m_is_shown = false;
};

}  // namespace command
