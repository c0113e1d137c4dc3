#include "mem/output/whole_directory.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "mem/base/error_line.h"
#include "mem/output/error_words.h"
#include "mem/output/report_directory.h"
#include "platform/raw_syscall.h"

namespace {

// The last number given, and by which process: a child made by fork begins anew. One writes at a
// time.
constinit unsigned last_number = 0;
constinit long last_numbers_process = 0;

unsigned next_number(long process) {
  return std::exchange(last_numbers_process, process) == process ? last_number + 1 : 1;
}

bool exists(char const* path) { return thr_raw_syscall(SYS_faccessat, AT_FDCWD, path, F_OK) == 0; }

// Never over one that is there: another process may write into the same directory.
long rename_to_new(char const* from, char const* to) {
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return -errno;
  // The file system or the kernel knows no such rename. One that is there and full is refused.
  const long answer = exists(to) ? -EEXIST : thr_raw_syscall(SYS_rename, from, to);
  return answer == -ENOTEMPTY ? -EEXIST : answer;
}

}  // namespace

MEM_WHOLE_DIRECTORY::MEM_WHOLE_DIRECTORY() {
  enter_parent();
  if (!has_trouble()) make();
}

MEM_WHOLE_DIRECTORY::~MEM_WHOLE_DIRECTORY() {
  if (m_is_made) remove();
}

void MEM_WHOLE_DIRECTORY::enter_parent() {
  if (char const* const directory = mem_report_directory()) {
    m_is_in_report_directory = true;
    m_parent = std::string_view(directory).copy(m_path, sizeof m_path - 2);
  } else {
    const long length = thr_raw_syscall(SYS_getcwd, m_path, sizeof m_path - 2);
    if (length < 0) return note_trouble({}, mem_error_words(length));
    m_parent = static_cast<std::size_t>(length) - 1;
  }
  if (m_parent > 1) m_path[m_parent++] = '/';
}

void MEM_WHOLE_DIRECTORY::make() {
  const mode_t mode = m_is_in_report_directory ? 0700 : 0777;
  const std::size_t room = sizeof m_path - m_parent;
  const long process = thr_raw_syscall(SYS_getpid);
  long answer = -EEXIST;
  // What stands there under the other name was left by a process of the same number.
  for (m_number = next_number(process); answer == -EEXIST; ++m_number) {
    const int length =
        std::snprintf(m_path + m_parent, room, "snapshot-%04u.incomplete.%ld", m_number, process);
    answer = static_cast<std::size_t>(length) >= room
                 ? -ENAMETOOLONG
                 : thr_raw_syscall(SYS_mkdirat, AT_FDCWD, m_path, mode);
  }
  --m_number;
  m_is_made = answer == 0;
  if (!m_is_made) note_trouble({}, mem_error_words(answer));
}

MEM_OUTPUT_PATH MEM_WHOLE_DIRECTORY::path_of(std::initializer_list<std::string_view> name) {
  const MEM_OUTPUT_PATH path(m_path, m_is_in_report_directory, name);
  const std::string_view remembered = path.name();
  if (m_names_length + remembered.size() < sizeof m_names) {
    m_names_length += remembered.copy(m_names + m_names_length, remembered.size());
    m_names[m_names_length++] = '\0';
  }
  return path;
}

void MEM_WHOLE_DIRECTORY::note_trouble(std::string_view file, char const* words) {
  if (has_trouble()) return;
  m_file[file.copy(m_file, sizeof m_file - 1)] = '\0';
  m_trouble = words;
}

bool MEM_WHOLE_DIRECTORY::rename_to(unsigned number) {
  char name[sizeof m_path + 32];
  std::copy_n(m_path, m_parent, name);
  std::snprintf(name + m_parent, sizeof name - m_parent, "snapshot-%04u", number);
  const long answer = rename_to_new(m_path, name);
  if (answer == -EEXIST) return false;
  last_number = number;
  m_is_made = answer != 0;
  if (answer != 0) note_trouble({}, mem_error_words(answer));
  return true;
}

void MEM_WHOLE_DIRECTORY::publish() {
  if (!has_trouble())
    while (!rename_to(m_number)) ++m_number;
  if (!has_trouble()) return;
  std::string_view where(m_path, m_parent > 1 ? m_parent - 1 : m_parent);
  if (where.empty()) where = "the current directory";
  mem_say_error_line("MEM: a snapshot can't be written into %.*s (%s%s%s): it is left out",
                     static_cast<int>(where.size()), where.data(), m_file,
                     *m_file == '\0' ? "" : ": ", m_trouble);
}

// By their names: at the limit of descriptors the directory can't be listed.
void MEM_WHOLE_DIRECTORY::remove() {
  for (char const* name = m_names; name < m_names + m_names_length; name += strlen(name) + 1)
    thr_raw_syscall(SYS_unlinkat, AT_FDCWD, MEM_OUTPUT_PATH(m_path, false, {name}).c_str(), 0);
  thr_raw_syscall(SYS_unlinkat, AT_FDCWD, m_path, AT_REMOVEDIR);
}
