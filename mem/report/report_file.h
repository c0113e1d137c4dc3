// Report files: their names, and that none is missing or cut short in silence. Relies on platform,
// mem/modules, mem/base, mem/host, mem/state, mem/output, mem/allocator, mem/oom, mem/settings,
// mem/symbolizer, mem/records, mem/paths, mem/timeline and mem/bins, like everything in this
// folder.
#pragma once

#include <new>

#include "mem/output/output_file.h"
#include "mem/output/whole_directory.h"
#include "mem/report/report_text.h"

/// Where a set of reports goes: into a directory that appears only with all of them; null for where
/// every file goes.
using MEM_REPORT_PLACE = MEM_WHOLE_DIRECTORY*;

/// `name`, in parts, at its place.
MEM_OUTPUT_PATH mem_report_path(MEM_REPORT_PLACE place,
                                std::initializer_list<std::string_view> name);
/// `prefix` + the executable tag + ".log". A missing tag is an internal error.
MEM_OUTPUT_PATH mem_report_path(MEM_REPORT_PLACE place, char const* prefix);

/// A report file, emptied when opened. Takes nothing from the heap. When it can't be opened, or is
/// incomplete, on a full disk for instance, its place is told; without one, one line on standard
/// error says so, for the former `failure_message`, where there is one.
class MEM_REPORT_FILE final : public MEM_TEXT_SINK {
 public:
  MEM_REPORT_FILE(MEM_REPORT_PLACE place, const MEM_OUTPUT_PATH& path,
                  char const* failure_message = nullptr);
  MEM_REPORT_FILE(const MEM_REPORT_FILE&) = delete;
  MEM_REPORT_FILE& operator=(const MEM_REPORT_FILE&) = delete;
  ~MEM_REPORT_FILE();

  bool is_open() const { return m_file.is_open(); }
  /// Nothing where it is not open.
  void write(std::string_view piece) override;
  /// The report ends here, for want of memory: says so in the file, and as above.
  void give_up();

 private:
  void tell_trouble();

  MEM_REPORT_PLACE m_place;
  const MEM_OUTPUT_PATH& m_path;
  MEM_OUTPUT_FILE m_file;
};

/// Opens a file and lets `write` fill it. One that can't be opened is skipped.
template <class WRITE>
void mem_write_report_file(MEM_REPORT_PLACE place, const MEM_OUTPUT_PATH& path, WRITE write,
                           char const* failure_message = nullptr) {
  MEM_REPORT_FILE file(place, path, failure_message);
  if (!file.is_open()) return;
  try {
    write(file);
  } catch (const std::bad_alloc&) {
    file.give_up();
  }
}

/// The same for `prefix` + tag + ".log".
template <class WRITE>
void mem_write_report(MEM_REPORT_PLACE place, char const* prefix, WRITE write,
                      char const* failure_message = nullptr) {
  mem_write_report_file(place, mem_report_path(place, prefix), write, failure_message);
}

/// The same for a report in two files that are filled at once. When only one can be opened, that
/// one is still written whole.
template <class WRITE>
void mem_write_report_pair(MEM_REPORT_PLACE place, char const* first_prefix,
                           char const* second_prefix, WRITE write) {
  const MEM_OUTPUT_PATH first_path = mem_report_path(place, first_prefix);
  const MEM_OUTPUT_PATH second_path = mem_report_path(place, second_prefix);
  MEM_REPORT_FILE first(place, first_path);
  MEM_REPORT_FILE second(place, second_path);
  if (!first.is_open() && !second.is_open()) return;
  try {
    write(first, second);
  } catch (const std::bad_alloc&) {
    for (MEM_REPORT_FILE* file : {&first, &second}) file->give_up();
  }
}
