#include "platform/thr_adoption.h"

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/raw_syscall.h"
#include "platform/thr_command.h"
#include "platform/thr_room.h"

namespace {

bool adopts_orphans_itself() {
  int is_subreaper = 0;
  thr_raw_syscall(SYS_prctl, PR_GET_CHILD_SUBREAPER, &is_subreaper, 0, 0);
  return is_subreaper != 0 || thr_raw_syscall(SYS_getpid) == 1;
}

// The set of signals that a line such as "SigCgt:\t0000000000010000" names.
std::uint64_t signals_of(char const* status, char const* line) {
  char const* found = std::strstr(status, line);
  return found == nullptr ? 0 : std::strtoull(found + std::strlen(line), nullptr, 16);
}

// One that handles, ignores or waits for the signal of a child's end. An init that can't be looked
// at is taken for a proper one.
bool init_takes_care_of_children() {
  char status[4096];
  const long file = thr_raw_syscall(SYS_open, "/proc/1/status", O_RDONLY | O_CLOEXEC);
  if (file < 0) return true;
  const long length = thr_raw_syscall(SYS_read, file, status, sizeof status - 1);
  thr_raw_syscall(SYS_close, file);
  if (length <= 0) return true;
  status[length] = '\0';
  const std::uint64_t signals = signals_of(status, "\nSigBlk:") | signals_of(status, "\nSigIgn:") |
                                signals_of(status, "\nSigCgt:");
  return (signals >> (SIGCHLD - 1) & 1) != 0;
}

// Whether the parent was started to be profiled, and may be or have an ancestor that adopts orphans
// and waits for all its children. None of them tells.
bool parent_is_a_host() {
  constexpr std::size_t most = std::size_t{1} << 20;
  char path[32];
  std::snprintf(path, sizeof path, "/proc/%ld/environ", thr_raw_syscall(SYS_getppid));
  const long file = thr_raw_syscall(SYS_open, path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  THR_ROOM room(most);
  char* const text = room.exists() ? room.take<char>(most) : nullptr;
  std::size_t length = 0;
  long got = 1;
  while (text != nullptr && got > 0 && length < most) {
    got = thr_raw_syscall(SYS_read, file, text + length, most - length);
    if (got > 0) length += static_cast<std::size_t>(got);
  }
  thr_raw_syscall(SYS_close, file);
  return thr_environment_profiles({text, length});
}

// The dynamic section of the executable, as it lies in memory.
struct EXECUTABLE {
  ElfW(Addr) base = 0;
  const ElfW(Dyn) * dynamic = nullptr;
};

EXECUTABLE executable() {
  const auto* header = reinterpret_cast<const ElfW(Phdr)*>(getauxval(AT_PHDR));
  const unsigned long count = getauxval(AT_PHNUM);
  EXECUTABLE result;
  ElfW(Addr) dynamic = 0;
  for (unsigned long i = 0; header != nullptr && i < count; ++i) {
    if (header[i].p_type == PT_PHDR)
      result.base = reinterpret_cast<ElfW(Addr)>(header) - header[i].p_vaddr;
    if (header[i].p_type == PT_DYNAMIC) dynamic = header[i].p_vaddr;
  }
  if (dynamic != 0) result.dynamic = reinterpret_cast<const ElfW(Dyn)*>(result.base + dynamic);
  return result;
}

// By the names of the symbols that the executable wants of its libraries, or gives them.
bool executable_can_trace() {
  constexpr char wanted[] = "ptrace";
  const EXECUTABLE program = executable();
  char const* names = nullptr;
  std::size_t size = 0;
  for (const ElfW(Dyn)* entry = program.dynamic; entry != nullptr && entry->d_tag != DT_NULL;
       ++entry) {
    // The loader has made an address of it, unless the section may not be written to.
    const ElfW(Addr) address =
        entry->d_un.d_ptr + (entry->d_un.d_ptr < program.base ? program.base : 0);
    if (entry->d_tag == DT_STRTAB) names = reinterpret_cast<char const*>(address);
    if (entry->d_tag == DT_STRSZ) size = entry->d_un.d_val;
  }
  return names != nullptr && memmem(names, size, wanted, sizeof wanted) != nullptr;
}

// Whether orphans of this process go to somebody who looks after them, or have to.
bool orphans_are_looked_after() {
  return executable_can_trace() || (init_takes_care_of_children() && !parent_is_a_host());
}

}  // namespace

bool thr_orphans_are_unwelcome() {
  enum : char { not_asked, yes, no };
  static constinit std::atomic<char> looked_after{not_asked};
  if (adopts_orphans_itself()) return true;
  if (looked_after == not_asked) looked_after = orphans_are_looked_after() ? yes : no;
  return looked_after == no;
}
