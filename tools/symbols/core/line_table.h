// The line table of one compilation unit.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace symbols {

class BYTE_READER;

/// The sections that line tables lie in and point to.
struct LINE_SECTIONS {
  std::string_view lines;         ///< .debug_line
  std::string_view line_strings;  ///< .debug_line_str
  std::string_view strings;       ///< .debug_str
};

/// Versions 2 to 5. Read by ourselves: libdw keeps tables for ever, and merges the sequences of
/// functions that the linker has thrown away, which lie at 0 and over everything else, with those
/// that are there. Names point into the sections.
class LINE_TABLE {
 public:
  struct ROW {
    std::uint64_t address;
    std::uint32_t line;
    std::uint32_t file;
  };

  LINE_TABLE() = default;
  /// The part before a damage, or nothing. The compilation's directory completes relative names.
  LINE_TABLE(const LINE_SECTIONS& sections, std::uint64_t offset, std::string directory);

  /// Null when no sequence has the address.
  const ROW* find(std::uint64_t address) const;
  /// The path of a file, as far as the table tells; empty for a number that it has no file for.
  std::string file_name(std::uint64_t file) const;
  std::size_t bytes() const;

 private:
  struct SOURCE_FILE {
    std::string_view name;
    std::uint64_t directory;
  };
  struct SEQUENCE {
    std::uint64_t low;
    std::uint64_t high;
    std::uint64_t highest_so_far;  // of this one and all before
    std::uint32_t first;           // its rows
    std::uint32_t end;
  };
  struct HEADER;
  class PROGRAM;

  bool read_header(BYTE_READER& reader, const LINE_SECTIONS& sections, HEADER& header);
  void read_old_names(BYTE_READER& reader);
  void read_names(BYTE_READER& reader, const LINE_SECTIONS& sections, const HEADER& header);
  void add_sequence(std::uint32_t first, std::uint64_t end_address);
  void finish();

  std::string m_directory;
  bool m_counts_from_zero = false;
  std::vector<std::string_view> m_directories;
  std::vector<SOURCE_FILE> m_files;
  std::vector<ROW> m_rows;
  std::vector<SEQUENCE> m_sequences;
};

}  // namespace symbols
