#include "mem/stack/user_filters.h"

#include <fstream>
#include <sstream>
#include <string>

#include "include/tuk_mem.h"
#include "mem/base/static_storage.h"
#include "mem/host/settings.h"

constinit MEM_USER_FILTERS* mem_user_filters_modules = nullptr;
constinit MEM_USER_FILTERS* mem_user_filters_functions = nullptr;
constinit MEM_USER_FILTERS* mem_user_filters_files = nullptr;

namespace {

constinit MEM_STATIC_STORAGE<MEM_USER_FILTERS> module_storage;
constinit MEM_STATIC_STORAGE<MEM_USER_FILTERS> function_storage;
constinit MEM_STATIC_STORAGE<MEM_USER_FILTERS> file_storage;

void create(MEM_TRACKING_GRANULARITY granularity) {
  mem_user_filters_modules = module_storage.construct();
  mem_user_filters_functions = function_storage.construct();
  mem_user_filters_files = file_storage.construct();
  if (granularity != MEM_TRACK_NONE) mem_read_user_filters();
}

struct COMMAND_ROW {
  char const* command;
  char const* kind;
  MEM_USER_FILTERS** list;
};

constexpr COMMAND_ROW commands[] = {
    {"filter_module", "module", &mem_user_filters_modules},
    {"filter_file_basename", "file basename", &mem_user_filters_files},
    {"filter_function", "function", &mem_user_filters_functions},
};

constexpr char const* comment_mark = "#";

const COMMAND_ROW* find_command(const std::string& word) {
  for (const COMMAND_ROW& row : commands)
    if (word == row.command) return &row;
  return nullptr;
}

class FILTER_FILE_READER {
 public:
  void read(std::istream& file) {
    for (std::string line; std::getline(file, line);) {
      ++m_line_number;
      read_line(line);
    }
  }
  void print_summary() const {
    mem_msg_vdebug("accepted %d user defined filter%s (%d error%s)", m_accepted, plural(m_accepted),
                   m_errors, plural(m_errors));
  }

 private:
  static char const* plural(int count) { return count == 1 ? "" : "s"; }

  void read_line(const std::string& line) {
    std::istringstream words(line);
    std::string command;
    if (!(words >> command) || command == comment_mark) return;
    const COMMAND_ROW* row = find_command(command);
    if (row == nullptr) {
      ++m_errors;
      mem_msg_vdebug("line %d: unexpected filter command: \"%s\"", m_line_number, command.c_str());
      return;
    }
    read_argument(*row, words);
  }

  void read_argument(const COMMAND_ROW& row, std::istream& words) {
    std::string argument;
    std::string further;
    if (!(words >> argument) || argument == comment_mark) {
      ++m_errors;
      mem_msg_vdebug("lineno %d: missing filter argument", m_line_number);
    } else if (words >> further && further != comment_mark) {
      ++m_errors;
      mem_msg_vdebug("lineno %d: unexpected text following filter argument", m_line_number);
    } else {
      (*row.list)->emplace_back(argument.c_str());
      ++m_accepted;
      mem_msg_vdebug("accepting %s filter: \"%s\"", row.kind, argument.c_str());
    }
  }

  int m_line_number = 0;
  int m_accepted = 0;
  int m_errors = 0;
};

}  // namespace

void mem_read_user_filters() {
  const std::string path = mem_setting_text("mem_user_defined_filters_file");
  if (path.empty()) return;
  std::ifstream file(path);
  if (!file) {
    mem_msg_vdebug("error opending memory tracker user defined filters file \"%s\"", path.c_str());
    return;
  }
  mem_msg_vdebug("reading user defined filters from \"%s\"", path.c_str());
  FILTER_FILE_READER reader;
  reader.read(file);
  reader.print_summary();
}

constinit const MEM_PART mem_user_filters_part(
    MEM_CREATE{create}, MEM_RESET{mem_nothing},  // filters hold for the process
    MEM_FREE{mem_nothing},                       // threads may still be classifying a frame
    MEM_ABANDON{mem_nothing},                    // never changed, never locked
    MEM_FOLLOW{mem_nothing});
