// Report files: their names, and that none is missing or cut short in silence. Relies on platform,
// mem/modules, mem/base, mem/host, mem/state, mem/output, mem/allocator, mem/oom, mem/symbolizer,
// mem/records, mem/timeline and mem/bins, like everything in this folder.
#pragma once

#include <new>
#include <ostream>
#include <streambuf>

#include "mem/output/output_file.h"

/// `prefix` + the executable tag + ".log". A missing tag is an internal error.
MEM_OUTPUT_PATH mem_report_path(char const* prefix);

/// A report file, emptied when opened, as a stream without a buffer: hand it whole pieces, as
/// MEM_REPORT_TEXT does. Takes nothing from the heap. When it can't be opened, or is incomplete, on
/// a full disk for instance, one line on standard error says so; for the former `failure_message`,
/// where there is one.
class MEM_REPORT_FILE {
 public:
  explicit MEM_REPORT_FILE(const MEM_OUTPUT_PATH& path, char const* failure_message = nullptr);
  MEM_REPORT_FILE(const MEM_REPORT_FILE&) = delete;
  MEM_REPORT_FILE& operator=(const MEM_REPORT_FILE&) = delete;
  ~MEM_REPORT_FILE();

  bool is_open() const { return m_buffer.file.is_open(); }
  std::ostream& stream() { return m_stream; }
  /// The report ends here, for want of memory: says so in the file, and on standard error.
  void give_up();

 private:
  struct BUFFER : std::streambuf {
    explicit BUFFER(const MEM_OUTPUT_PATH& path) : file(path, MEM_OUTPUT_FILE::OPEN::EMPTIED) {}
    int_type overflow(int_type c) override;
    std::streamsize xsputn(char const* text, std::streamsize length) override;

    MEM_OUTPUT_FILE file;
  };

  BUFFER m_buffer;
  std::ostream m_stream;
};

/// Opens a file and lets `write` fill it. One that can't be opened is skipped.
template <class WRITE>
void mem_write_report_file(const MEM_OUTPUT_PATH& path, WRITE write,
                           char const* failure_message = nullptr) {
  MEM_REPORT_FILE file(path, failure_message);
  if (!file.is_open()) return;
  try {
    write(file.stream());
  } catch (const std::bad_alloc&) {
    file.give_up();
  }
}

/// The same for `prefix` + tag + ".log".
template <class WRITE>
void mem_write_report(char const* prefix, WRITE write, char const* failure_message = nullptr) {
  mem_write_report_file(mem_report_path(prefix), write, failure_message);
}

/// The same for a report in two files that are filled at once. When only one can be opened, that
/// one is still written whole.
void mem_write_report_pair(char const* first_prefix, char const* second_prefix,
                           bool (*write)(std::ostream& first, std::ostream& second));
