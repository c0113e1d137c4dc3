// One report file into the model of its process.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "tools/reports/line_reader.h"
#include "tools/reports/run.h"

namespace reports {

/// A kind of report: how its files are named and begin, and what reads it.
struct REPORT_KIND {
  /// Of the file name. The host's tag and ".log" follow where it ends in a dot.
  std::string_view prefix;
  /// Of the first line.
  std::string_view beginning;
  /// Reads what follows the first line, which it is given too. Throws UNREADABLE; what was read
  /// before is in the process then. Null for a kind that holds nothing to show.
  void (*read)(LINE_READER& lines, std::string_view first_line, PROCESS& process, TEXTS& texts);
  /// Whether the process has that already, from another kind's file.
  bool (*is_there)(const PROCESS& process);
};

/// In the order in which the files of a directory are read: one before those that need it, or that
/// say the same in fewer words.
extern const std::vector<REPORT_KIND> report_kinds;

/// The kind whose files have that name; null for none. `tag` is what the name says of it.
const REPORT_KIND* kind_of_name(std::string_view file_name, std::string& tag);

/// Reads a report of that kind, or, for null, of the kind that its first line tells.
void read_report(std::istream& in, const std::string& path, const REPORT_KIND* kind,
                 PROCESS& process, TEXTS& texts);

// The kinds' own functions, as REPORT_KIND::read.
void read_sites(LINE_READER&, std::string_view first_line, PROCESS&, TEXTS&);
void read_modules(LINE_READER&, std::string_view first_line, PROCESS&, TEXTS&);
void read_base_addresses(LINE_READER&, std::string_view first_line, PROCESS&, TEXTS&);
void read_bins(LINE_READER&, std::string_view first_line, PROCESS&, TEXTS&);
void read_tags(LINE_READER&, std::string_view first_line, PROCESS&, TEXTS&);
void read_call_paths(LINE_READER&, std::string_view first_line, PROCESS&, TEXTS&);
void read_leaks(LINE_READER&, std::string_view first_line, PROCESS&, TEXTS&);
void read_leak_summaries(LINE_READER&, std::string_view first_line, PROCESS&, TEXTS&);
void read_module_bytes(LINE_READER&, std::string_view first_line, PROCESS&, TEXTS&);
void read_module_blocks(LINE_READER&, std::string_view first_line, PROCESS&, TEXTS&);
void read_tag_bytes(LINE_READER&, std::string_view first_line, PROCESS&, TEXTS&);
void read_auxiliary(LINE_READER&, std::string_view first_line, PROCESS&, TEXTS&);
void read_run_facts(LINE_READER&, std::string_view first_line, PROCESS&, TEXTS&);

}  // namespace reports
