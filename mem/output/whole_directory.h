// A directory of files that appears when all of them are written, or never.
#pragma once

#include <initializer_list>
#include <string_view>

#include "mem/output/output_file.h"

/// "snapshot-0001", or the next number that is free, in the report directory, or where there is
/// none in what is the current one when this is constructed. It is made under another name, which
/// names the process, and gets its own when it is whole. The directory and its files have the
/// permissions of what else is written there. One thread; takes nothing from the heap.
class MEM_WHOLE_DIRECTORY {
 public:
  MEM_WHOLE_DIRECTORY();
  MEM_WHOLE_DIRECTORY(const MEM_WHOLE_DIRECTORY&) = delete;
  MEM_WHOLE_DIRECTORY& operator=(const MEM_WHOLE_DIRECTORY&) = delete;
  /// Removes what has not been published.
  ~MEM_WHOLE_DIRECTORY();

  /// Where a file of it is written.
  MEM_OUTPUT_PATH path_of(std::initializer_list<std::string_view> name);

  /// What keeps it from appearing: the first trouble counts. The texts have to stay.
  void note_trouble(std::string_view file, char const* words);
  bool has_trouble() const { return m_trouble != nullptr; }

  /// It appears. Where there was trouble it does not, and one line on standard error says why.
  void publish();

 private:
  void enter_parent();
  void make();
  bool rename_to(unsigned number);
  void remove();

  char m_path[PATH_MAX + 1];  // under its other name
  std::size_t m_parent = 0;   // the length of its parent's path, with the slash
  unsigned m_number = 0;
  bool m_is_in_report_directory = false;
  bool m_is_made = false;
  char m_names[24 * (NAME_MAX + 1)];  // of its files, each with a null character behind it
  std::size_t m_names_length = 0;
  char m_file[NAME_MAX + 1] = "";
  char const* m_trouble = nullptr;
};
