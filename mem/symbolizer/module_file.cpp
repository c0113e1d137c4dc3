#include "mem/symbolizer/module_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "mem/base/check.h"
#include "platform/raw_syscall.h"

namespace {

using STATE = MEM_MODULE_FILE::STATE;

// All that were ever met, newest first. Never removed from.
constinit std::atomic<MEM_MODULE_FILE*> newest_file = nullptr;

MEM_BOOKKEEPING_STRING path_of(char const* name) {
  char executable[PATH_MAX];
  if (*name != '\0') return name;
  const ssize_t length = readlink("/proc/self/exe", executable, sizeof executable);
  return {executable, static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

MEM_BOOKKEEPING_STRING absolute(const MEM_BOOKKEEPING_STRING& path) {
  char directory[PATH_MAX];
  if (path.starts_with('/') || getcwd(directory, sizeof directory) == nullptr) return path;
  return MEM_BOOKKEEPING_STRING(directory) + '/' + path;
}

STATE state_of_error(int error) {
  if (error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG)
    return STATE::gone;
  return error == EMFILE || error == ENFILE || error == ENOMEM || error == EINTR
             ? STATE::not_now
             : STATE::unreadable;
}

// Changes whenever the file does, and never is 0.
std::uint64_t stamp_of(const struct stat& file) {
  std::uint64_t stamp = 0;
  for (const auto part :
       {file.st_dev, file.st_ino, static_cast<std::uint64_t>(file.st_size),
        static_cast<std::uint64_t>(file.st_mode), static_cast<std::uint64_t>(file.st_ctim.tv_sec),
        static_cast<std::uint64_t>(file.st_ctim.tv_nsec)})
    stamp = (stamp ^ part) * 0x9e3779b97f4a7c15 + (stamp >> 32);
  return stamp | 1;
}

class OPEN_FILE {
 public:
  explicit OPEN_FILE(char const* path)
      : m_answer(thr_raw_syscall(SYS_open, path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  }  // not to wait at a pipe
  OPEN_FILE(const OPEN_FILE&) = delete;
  OPEN_FILE& operator=(const OPEN_FILE&) = delete;
  ~OPEN_FILE() {
    if (m_answer >= 0) thr_raw_syscall(SYS_close, m_answer);
  }
  int descriptor() const { return static_cast<int>(m_answer); }
  int release() { return static_cast<int>(std::exchange(m_answer, -1)); }
  int error() const { return static_cast<int>(-m_answer); }

 private:
  long m_answer;
};

}  // namespace

MEM_MODULE_FILE::MEM_MODULE_FILE(char const* name, const MEM_ELF_IDENTITY& identity)
    : m_name(name),
      m_path(path_of(name)),
      m_absolute_path(absolute(m_path)),
      m_identity(identity) {}

MEM_MODULE_FILE& MEM_MODULE_FILE::of_module(const MEM_LOADED_MODULE& module) {
  return find_or_add(module.name, MEM_ELF_IDENTITY::of_memory(module.start, module.bias));
}

MEM_MODULE_FILE& MEM_MODULE_FILE::of_path(char const* path) {
  for (MEM_MODULE_FILE* file = newest_file; file != nullptr; file = file->m_older)
    if (file->path() == path) return *file;
  return find_or_add(path, {});
}

// Among those from `first` on, before `end`.
MEM_MODULE_FILE* MEM_MODULE_FILE::find(char const* name, const MEM_ELF_IDENTITY& identity,
                                       MEM_MODULE_FILE* first, MEM_MODULE_FILE* end) {
  for (MEM_MODULE_FILE* file = first; file != end; file = file->m_older)
    if (file->m_name == name && file->m_identity.is_same(identity)) return file;
  return nullptr;
}

MEM_MODULE_FILE& MEM_MODULE_FILE::find_or_add(char const* name, const MEM_ELF_IDENTITY& identity) {
  MEM_MODULE_FILE* first = newest_file;
  if (MEM_MODULE_FILE* known = find(name, identity, first, nullptr)) return *known;
  MEM_BOOKKEEPING_ALLOCATOR<MEM_MODULE_FILE> memory;
  auto* fresh = new (memory.allocate(1)) MEM_MODULE_FILE(name, identity);
  fresh->m_older = first;
  while (!newest_file.compare_exchange_strong(first, fresh)) {
    if (MEM_MODULE_FILE* others = find(name, identity, first, fresh->m_older)) {
      fresh->~MEM_MODULE_FILE();
      memory.deallocate(fresh, 1);
      return *others;
    }
    fresh->m_older = first;
  }
  return *fresh;
}

STATE MEM_MODULE_FILE::state() {
  struct stat file;
  if (stat(absolute_path(), &file) != 0) return state_of_error(errno);
  if (!S_ISREG(file.st_mode)) return STATE::gone;
  const std::uint64_t stamp = stamp_of(file);
  if (m_compared_stamp != stamp) {
    const OPEN_FILE now(absolute_path());
    const STATE state =
        now.descriptor() < 0 ? state_of_error(now.error()) : compare_with(now.descriptor());
    if (state == STATE::not_now) return state;
    m_compared_state = state;
    m_compared_stamp = stamp;
  }
  return m_compared_state;
}

int MEM_MODULE_FILE::open(STATE& state) {
  OPEN_FILE now(absolute_path());
  state = now.descriptor() < 0 ? state_of_error(now.error()) : compare_with(now.descriptor());
  return state == STATE::usable ? now.release() : -1;
}

// Without a build id, the size at the first look has to stay.
STATE MEM_MODULE_FILE::compare_with(int descriptor) {
  mem_check(descriptor >= 0, "fd >= 0", MEM_SOURCE::addr2line);
  struct stat file;
  if (fstat(descriptor, &file) != 0) return state_of_error(errno);
  if (!S_ISREG(file.st_mode)) return STATE::gone;
  const MEM_ELF_IDENTITY now = MEM_ELF_IDENTITY::of_file(descriptor);
  if (!now.is_known()) return STATE::gone;  // no module any more
  mem_check(now.is_known(), "sizeof ( ehdr ) == nread", MEM_SOURCE::addr2line);
  if (m_identity.is_known() && !m_identity.is_same(now)) return STATE::gone;
  std::uint64_t size = 0;
  if (!m_size.compare_exchange_strong(size, static_cast<std::uint64_t>(file.st_size)) &&
      size != static_cast<std::uint64_t>(file.st_size) && !m_identity.has_build_id())
    return STATE::gone;
  m_e_type = now.e_type;
  return STATE::usable;
}

// Most modules of a short process are asked about a few addresses. Another thread may have been
// faster.
MEM_SYMBOL_INDEX const* MEM_MODULE_FILE::symbols_of(const THR_SYMBOL_TABLE& table) {
  constexpr int few = 16;
  MEM_SYMBOL_INDEX const* known = m_symbols;
  if (known != nullptr || m_symbols_asked.fetch_add(1) < few) return known;
  MEM_BOOKKEEPING_ALLOCATOR<MEM_SYMBOL_INDEX> memory;
  auto* const fresh = new (memory.allocate(1)) MEM_SYMBOL_INDEX(table);
  if (m_symbols.compare_exchange_strong(known, fresh)) return fresh;
  fresh->~MEM_SYMBOL_INDEX();
  memory.deallocate(fresh, 1);
  return known;
}

MEM_LOADED_SYMBOL MEM_MODULE_FILE::nearest_symbol(const MEM_LOADED_MODULE& module,
                                                  void const* address) {
  const THR_SYMBOL_TABLE table(module.map->l_ld, module.map->l_addr);
  const Elf64_Addr in_file = reinterpret_cast<std::uintptr_t>(address) - module.bias;
  MEM_SYMBOL_INDEX const* const index = symbols_of(table);
  const std::uint32_t number =
      index == nullptr ? mem_find_symbol(table, in_file) : index->find(table, in_file);
  if (number == mem_no_symbol) return {};
  return {table.name_of(number), reinterpret_cast<void*>(module.bias + table[number].st_value)};
}

bool MEM_MODULE_FILE::seems_without_lines(bool has_line) {
  constexpr int several = 3;
  if (m_answers_without_line >= several) return false;
  if (has_line) m_answers_without_line = several;
  return !has_line && ++m_answers_without_line == several;
}
