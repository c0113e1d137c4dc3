// What the kernel tells of another process in /proc/PID/status.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace command {

class PROC_STATUS {
 public:
  explicit PROC_STATUS(pid_t process);

  bool is_there() const { return !m_text.empty(); }
  /// The words behind `field` and its colon; empty for none.
  std::string text(const std::string& field) const;
  /// A field in kB, in bytes; 0 for none.
  std::uint64_t bytes(const std::string& field) const;
  /// Whether the process has a handler for a signal.
  bool handles(int signal) const;

 private:
  std::string m_text;
};

}  // namespace command
