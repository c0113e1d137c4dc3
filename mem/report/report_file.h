// Report files: where they are, and that none is cut short in silence. Relies on mem/base,
// mem/host, mem/state, mem/records, mem/timeline and mem/bins, like everything in this folder.
#pragma once

#include <fstream>
#include <string>

#include "mem/base/standard_error.h"

/// `prefix` + the executable tag + ".log". A missing tag is an internal error.
std::string mem_report_name(char const* prefix);

/// A report file in the current directory, truncated when opened. A write that failed, on a full
/// disk for instance, is said on the debug channel when the file is closed.
class MEM_REPORT_FILE {
 public:
  explicit MEM_REPORT_FILE(std::string name);
  MEM_REPORT_FILE(const MEM_REPORT_FILE&) = delete;
  MEM_REPORT_FILE& operator=(const MEM_REPORT_FILE&) = delete;
  ~MEM_REPORT_FILE();

  bool is_open() const { return m_stream.is_open(); }
  std::ostream& stream() { return m_stream; }

 private:
  std::string m_name;
  std::ofstream m_stream;
};

/// Opens `prefix` + tag + ".log" and lets `write` fill it. A file that cannot be opened is skipped:
/// in silence, or with `failure_message` on standard error.
template <class WRITE>
void mem_write_report(char const* prefix, WRITE write, char const* failure_message = nullptr);

/// The same for a report in two files that are filled at once. When only one can be opened, that
/// one is still written whole.
void mem_write_report_pair(char const* first_prefix, char const* second_prefix,
                           bool (*write)(std::ostream& first, std::ostream& second));

template <class WRITE>
void mem_write_report(char const* prefix, WRITE write, char const* failure_message) {
  MEM_REPORT_FILE file(mem_report_name(prefix));
  if (file.is_open())
    write(file.stream());
  else if (failure_message != nullptr)
    mem_say_on_standard_error(failure_message);
}
