#include "mem/output/made_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <utility>

#include "mem/output/error_words.h"
#include "platform/raw_syscall.h"

namespace {

using PATH = MEM_BOOKKEEPING_STRING;

// From the root on, one name after the other. Every step answers null, or why it can't be taken.
class WALK {
 public:
  explicit WALK(PATH path) : m_rest(std::move(path)) {}

  char const* to_the_end() {
    while (!m_rest.empty())
      if (char const* const trouble = step(next_name())) return trouble;
    return nullptr;
  }
  // Without links.
  PATH where() const { return m_reached.empty() ? "/" : m_reached; }

 private:
  PATH next_name() {
    const std::size_t end = std::min(m_rest.find('/'), m_rest.size());
    PATH name = m_rest.substr(0, end);
    m_rest.erase(0, end + 1);
    return name;
  }

  char const* step(const PATH& name) {
    if (name.empty() || name == ".") return nullptr;
    if (name == "..") {
      m_reached.erase(std::min(m_reached.rfind('/'), m_reached.size()));
      return nullptr;
    }
    const PATH next = m_reached + '/' + name;
    struct stat file {};
    if (const long answer = look_or_make(next.c_str(), file); answer != 0)
      return mem_error_words(answer);
    if (S_ISLNK(file.st_mode)) return follow(next.c_str(), file.st_uid);
    if (!S_ISDIR(file.st_mode)) return mem_error_words(-ENOTDIR);
    m_reached = next;
    return nullptr;
  }

  // Other processes may make the same directory at this moment.
  static long look_or_make(char const* path, struct stat& file) {
    const long answer = look(path, file);
    if (answer != -ENOENT) return answer;
    constexpr mode_t for_this_user_alone = 0700;
    const long made = thr_raw_syscall(SYS_mkdirat, AT_FDCWD, path, for_this_user_alone);
    return made != 0 && made != -EEXIST ? made : look(path, file);
  }

  static long look(char const* path, struct stat& file) {
    return thr_raw_syscall(SYS_newfstatat, AT_FDCWD, path, &file, AT_SYMLINK_NOFOLLOW);
  }

  char const* follow(char const* link, uid_t owner) {
    if (owner != 0 && owner != geteuid()) return "a link of another user's leads there";
    constexpr int most_links = 40;  // as the kernel follows
    if (++m_links > most_links) return mem_error_words(-ELOOP);
    std::array<char, PATH_MAX> target;
    const long length =
        thr_raw_syscall(SYS_readlinkat, AT_FDCWD, link, target.data(), target.size());
    if (length < 0) return mem_error_words(length);
    m_rest = PATH(target.data(), static_cast<std::size_t>(length)) + '/' + m_rest;
    if (m_rest.starts_with('/')) m_reached.clear();
    return nullptr;
  }

  PATH m_reached;
  PATH m_rest;
  int m_links = 0;
};

// By the effective user, as files are opened. Older kernels can only be asked about the real one.
long may_write_into(char const* directory) {
  const long answer = thr_raw_syscall(SYS_faccessat2, AT_FDCWD, directory, W_OK | X_OK, AT_EACCESS);
  return answer == -ENOSYS || answer == -EPERM
             ? thr_raw_syscall(SYS_faccessat, AT_FDCWD, directory, W_OK | X_OK)
             : answer;
}

}  // namespace

char const* mem_make_directory(MEM_BOOKKEEPING_STRING& path) {
  WALK walk(path);
  if (char const* const trouble = walk.to_the_end()) return trouble;
  path = walk.where();
  const long answer = may_write_into(path.c_str());
  return answer == 0 ? nullptr : mem_error_words(answer);
}
