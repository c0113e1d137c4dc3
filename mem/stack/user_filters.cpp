#include "mem/stack/user_filters.h"

#include <fstream>
#include <string>

#include "include/tuk_mem.h"
#include "mem/base/static_storage.h"
#include "mem/host/settings.h"
#include "mem/stack/frame_filters.h"

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

struct KIND_ROW {
  MEM_FILTER_LINE::KIND kind;
  char const* name;
  MEM_USER_FILTERS** list;
};

constexpr KIND_ROW kinds[] = {
    {MEM_FILTER_LINE::MODULE, "module", &mem_user_filters_modules},
    {MEM_FILTER_LINE::FILE_BASENAME, "file basename", &mem_user_filters_files},
    {MEM_FILTER_LINE::FUNCTION, "function", &mem_user_filters_functions},
};

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
    const MEM_FILTER_LINE filter(line);
    if (filter.fault != MEM_FILTER_LINE::WELL) return refuse(filter);
    for (const KIND_ROW& row : kinds) {
      if (row.kind != filter.kind) continue;
      const auto& prefix = (*row.list)->emplace_back(filter.prefix);
      ++m_accepted;
      mem_msg_vdebug("accepting %s filter: \"%s\"", row.name, prefix.c_str());
    }
  }

  void refuse(const MEM_FILTER_LINE& filter) {
    ++m_errors;
    if (filter.fault == MEM_FILTER_LINE::UNKNOWN_COMMAND)
      mem_msg_vdebug("line %d: unexpected filter command: \"%s\"", m_line_number,
                     std::string(filter.command).c_str());
    else if (filter.fault == MEM_FILTER_LINE::NO_PREFIX)
      mem_msg_vdebug("lineno %d: missing filter argument", m_line_number);
    else
      mem_msg_vdebug("lineno %d: unexpected text following filter argument", m_line_number);
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
