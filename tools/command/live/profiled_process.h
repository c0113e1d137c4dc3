// A profiled process that runs: where it writes, and how it is asked for a snapshot.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace command {

class PROFILED_PROCESS {
 public:
  /// By what it was started with. Throws FAILURE where the process can't be looked at, or does not
  /// listen to a signal that asks for snapshots.
  explicit PROFILED_PROCESS(pid_t process);

  pid_t pid() const { return m_process; }
  /// Where its reports go.
  const std::string& directory() const { return m_directory; }
  bool is_there() const;

  /// Asks for a snapshot and waits for it. Its path; none when none has come in `time`, as from a
  /// process that allocates nothing. What comes too late is taken by the next call.
  std::optional<std::string> take_snapshot(std::chrono::milliseconds time);

 private:
  std::set<std::string> snapshots() const;
  std::optional<std::string> new_snapshot();

  pid_t m_process;
  std::string m_directory;
  int m_signal = 0;
  std::optional<std::set<std::string>> m_before_request;  // of one that is not answered yet
};

/// The name and number of each process that was started with that variable and is there now.
std::vector<std::string> processes_with(const std::string& variable, const std::string& value);

/// The number of a signal, by number or name, with SIG in front or not, RTMIN+2 and RTMAX-2 too; 0
/// for none.
int signal_number(const std::string& name);

}  // namespace command
