#include "mem/output/output_file.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/auxv.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "mem/base/error_line.h"
#include "mem/output/error_words.h"
#include "mem/output/report_directory.h"
#include "platform/raw_syscall.h"
#include "platform/thr_quiet_write.h"

namespace {

using OPEN = MEM_OUTPUT_FILE::OPEN;
using STAY = MEM_OUTPUT_FILE::STAY;

char const* words_for(long error) {
  return error == -ELOOP ? "no link is followed" : mem_error_words(error);
}

// One that is there is opened as it is, without waiting for the other end of a pipe.
long open_in_report_directory(char const* path, int flags, bool& was_there) {
  long answer = -EEXIST;
  if ((flags & O_CREAT) != 0)
    answer = mem_open_without_links(AT_FDCWD, path, (flags & ~O_TRUNC) | O_EXCL);
  was_there = answer == -EEXIST && (flags & O_EXCL) == 0;
  return was_there
             ? mem_open_without_links(AT_FDCWD, path, (flags & ~(O_TRUNC | O_CREAT)) | O_NONBLOCK)
             : answer;
}

// The current directory is the caller's then, who may have put anything there.
bool has_more_rights_than_its_caller() { return getauxval(AT_SECURE) != 0; }

long open_as_any_program(char const* path, int flags) {
  constexpr mode_t for_all = 0666;
  return thr_raw_syscall(SYS_openat, AT_FDCWD, path, flags, for_all);
}

int flags_of(OPEN how) {
  switch (how) {
    case OPEN::EMPTIED:
      return O_CREAT | O_TRUNC;
    case OPEN::NEW:
      return O_CREAT | O_EXCL | O_APPEND;
    case OPEN::OLD:
      return O_APPEND;
  }
  return 0;
}

// A host's standard streams may be closed. What stays open is out of the way in the upper quarter,
// though not so high that the kernel's table has to grow much.
long lowest_number(STAY stay) {
  constexpr long behind_the_standard_streams = 3;
  constexpr rlim_t most = 1024;
  rlimit limit{};
  if (stay == STAY::SHORT || getrlimit(RLIMIT_NOFILE, &limit) != 0)
    return behind_the_standard_streams;
  const rlim_t end = std::min(limit.rlim_cur, most);
  return std::max(static_cast<long>(end - end / 4), behind_the_standard_streams);
}

}  // namespace

// The report directory had no link in its path: one that is there now was put there since.
long mem_open_without_links(int at, char const* path, int flags) {
  constexpr mode_t for_this_user_alone = 0600;
  open_how how{};
  how.flags = static_cast<std::uint64_t>(flags | O_NOFOLLOW);
  how.mode = (flags & O_CREAT) != 0 ? for_this_user_alone : 0;
  how.resolve = RESOLVE_NO_SYMLINKS;
  const long answer = thr_raw_syscall(SYS_openat2, at, path, &how, sizeof how);
  // From an older kernel, or a sandbox that knows less.
  return answer == -ENOSYS || answer == -EPERM
             ? thr_raw_syscall(SYS_openat, at, path, flags | O_NOFOLLOW, for_this_user_alone)
             : answer;
}

MEM_OUTPUT_PATH::MEM_OUTPUT_PATH(std::initializer_list<std::string_view> name)
    : MEM_OUTPUT_PATH(mem_report_directory(), mem_report_directory() != nullptr, name) {}

MEM_OUTPUT_PATH::MEM_OUTPUT_PATH(char const* directory, bool is_in_report_directory,
                                 std::initializer_list<std::string_view> name)
    : m_is_in_report_directory(is_in_report_directory) {
  std::size_t length = 0;
  const auto append = [&](std::string_view part) {
    length += part.copy(m_text + length, sizeof m_text - 1 - length);
  };
  if (directory != nullptr) {
    append(directory);
    append("/");
  }
  for (const std::string_view part : name) append(part);
  m_text[length] = '\0';
}

std::string_view MEM_OUTPUT_PATH::name() const {
  const std::string_view path = m_text;
  return path.substr(path.rfind('/') + 1);  // npos + 1 is 0: the whole path
}

MEM_OUTPUT_FILE::MEM_OUTPUT_FILE(const MEM_OUTPUT_PATH& path, OPEN how, STAY stay)
    : m_path(path), m_trouble(open(how, stay)) {
  m_was_open = m_trouble == nullptr;
  if (!m_was_open) close();
}

// Null, or why it can't be written.
char const* MEM_OUTPUT_FILE::open(OPEN how, STAY stay) {
  const int flags = O_WRONLY | O_CLOEXEC | flags_of(how);
  bool was_there = false;
  long answer = -EINTR;
  while (answer == -EINTR)
    answer = m_path.is_in_report_directory() || has_more_rights_than_its_caller()
                 ? open_in_report_directory(m_path.c_str(), flags, was_there)
                 : open_as_any_program(m_path.c_str(), flags);
  if (answer < 0) return words_for(answer);
  m_descriptor = static_cast<int>(answer);
  move_out_of_the_way(stay);
  struct stat file {};
  answer = thr_raw_syscall(SYS_fstat, m_descriptor, &file);
  if (answer < 0) return words_for(answer);
  m_device = file.st_dev;
  m_inode = file.st_ino;
  if (!was_there)
    return nullptr;  // so it is this user's, whoever the file system says it belongs to
  if (!S_ISREG(file.st_mode) || file.st_uid != geteuid() || file.st_nlink != 1)
    return "what is there is not a file of this user's alone";
  answer = how == OPEN::EMPTIED ? thr_raw_syscall(SYS_ftruncate, m_descriptor, 0L) : 0;
  return answer < 0 ? words_for(answer) : nullptr;
}

void MEM_OUTPUT_FILE::move_out_of_the_way(STAY stay) {
  const long lowest = lowest_number(stay);
  if (m_descriptor >= lowest) return;
  const long copy = thr_raw_syscall(SYS_fcntl, m_descriptor, F_DUPFD_CLOEXEC, lowest);
  if (copy < 0) return;
  thr_raw_syscall(SYS_close, m_descriptor);
  m_descriptor = static_cast<int>(copy);
}

bool MEM_OUTPUT_FILE::is_ours() const {
  struct stat now;
  return thr_raw_syscall(SYS_fstat, m_descriptor, &now) == 0 && now.st_dev == m_device &&
         now.st_ino == m_inode;
}

bool MEM_OUTPUT_FILE::write(std::string_view text) {
  while (!text.empty()) {
    if (!is_ours()) {
      m_trouble = "its descriptor has been closed";
      return false;
    }
    const iovec piece{.iov_base = const_cast<char*>(text.data()), .iov_len = text.size()};
    const long written = thr_quiet_write(m_descriptor, &piece, 1);
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
    if (written > 0 || written == -EINTR) continue;
    m_trouble = words_for(written == 0 ? -EIO : written);
    return false;
  }
  return true;
}

void MEM_OUTPUT_FILE::close() {
  if (!is_open()) return;
  const long answer = is_ours() ? thr_raw_syscall(SYS_close, m_descriptor) : 0;
  if (answer < 0 && answer != -EINTR && m_trouble == nullptr) m_trouble = words_for(answer);
  m_descriptor = -1;
}

void MEM_OUTPUT_FILE::say_trouble() {
  char const* const trouble = m_trouble;
  if (trouble == nullptr || m_was_said.exchange(true)) return;
  mem_say_error_line("MEM: %s %s: %s", m_path.c_str(),
                     m_was_open ? "is incomplete" : "can't be written", trouble);
}
