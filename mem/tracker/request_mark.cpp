#include "mem/tracker/request_mark.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "mem/output/output_file.h"
#include "mem/output/report_directory.h"
#include "platform/raw_syscall.h"

namespace {

// The directory as its parent and the name there, each to be opened by itself.
constinit char parent[PATH_MAX + 1] = "";
constinit char directory[NAME_MAX + 1] = "";
constinit char name[64] = "";
constinit bool is_in_report_directory = false;

class DIRECTORY {
 public:
  DIRECTORY(int at, char const* path)
      : m_descriptor(mem_open_without_links(at, path, O_PATH | O_DIRECTORY | O_CLOEXEC)) {}
  DIRECTORY(const DIRECTORY&) = delete;
  DIRECTORY& operator=(const DIRECTORY&) = delete;
  ~DIRECTORY() {
    if (is_open()) thr_raw_syscall(SYS_close, m_descriptor);
  }
  bool is_open() const { return m_descriptor >= 0; }
  int descriptor() const { return static_cast<int>(m_descriptor); }

 private:
  long m_descriptor;
};

// False for a path that is none, or too long for any file in it.
bool split(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos || path.size() >= PATH_MAX) return false;
  const std::string_view last = path.substr(slash + 1);
  if (last.size() >= sizeof directory) return false;
  parent[path.copy(parent, slash == 0 ? 1 : slash)] = '\0';
  directory[last.copy(directory, last.size())] = '\0';
  if (last.empty()) std::strcpy(directory, ".");
  return true;
}

template <class WORK>
void in_directory(WORK work) {
  if (*name == '\0') return;
  const DIRECTORY above(AT_FDCWD, parent);
  if (!above.is_open()) return;
  constexpr mode_t for_this_user_alone = 0700;
  if (is_in_report_directory)
    thr_raw_syscall(SYS_mkdirat, above.descriptor(), directory, for_this_user_alone);
  const DIRECTORY marks(above.descriptor(), directory);
  if (marks.is_open()) work(marks.descriptor());
}

}  // namespace

void mem_place_request_mark() {
  *name = '\0';
  char current[PATH_MAX] = "";
  char const* path = mem_wanted_report_directory();
  is_in_report_directory = path != nullptr;
  if (!is_in_report_directory && thr_raw_syscall(SYS_getcwd, current, sizeof current) > 0)
    path = current;
  if (path != nullptr && split(path))
    std::snprintf(name, sizeof name, "snapshot.%ld.requested", thr_raw_syscall(SYS_getpid));
}

void mem_make_request_mark() {
  in_directory([](int at) { thr_raw_syscall(SYS_mknodat, at, name, S_IFREG | 0600, 0); });
}

void mem_remove_request_mark() {
  in_directory([](int at) { thr_raw_syscall(SYS_unlinkat, at, name, 0); });
}
