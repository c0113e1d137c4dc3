#include "mem/output/run_start.h"

#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <climits>

#include "mem/base/static_storage.h"
#include "platform/raw_syscall.h"

namespace {

using TEXT = MEM_BOOKKEEPING_STRING;

constinit MEM_STATIC_STORAGE<MEM_RUN_START> storage;
constinit std::atomic<const MEM_RUN_START*> run_start = nullptr;

// Without /proc, as whoever started the process called it.
TEXT executable() {
  std::array<char, PATH_MAX> path;
  const long length =
      thr_raw_syscall(SYS_readlinkat, AT_FDCWD, "/proc/self/exe", path.data(), path.size());
  if (length > 0) return {path.data(), static_cast<std::size_t>(length)};
  auto const* const name = reinterpret_cast<char const*>(getauxval(AT_EXECFN));
  return name == nullptr ? "unknown" : name;
}

TEXT current_directory() {
  std::array<char, PATH_MAX> path;
  const long length = thr_raw_syscall(SYS_getcwd, path.data(), path.size());
  return length > 0 && path[0] == '/' ? TEXT(path.data()) : TEXT();
}

// A copy, since a program may write a title over them.
TEXT arguments() {
  TEXT text;
  const long file =
      thr_raw_syscall(SYS_openat, AT_FDCWD, "/proc/self/cmdline", O_RDONLY | O_CLOEXEC);
  std::array<char, 4096> piece;
  for (long count = 1; file >= 0 && count > 0;) {
    count = thr_raw_syscall(SYS_read, file, piece.data(), piece.size());
    if (count > 0) text.append(piece.data(), static_cast<std::size_t>(count));
  }
  if (file >= 0) thr_raw_syscall(SYS_close, file);
  return text;
}

}  // namespace

const MEM_RUN_START& mem_note_run_start() {
  if (run_start == nullptr)
    run_start = storage.construct(MEM_RUN_START{executable(), current_directory(), arguments(),
                                                getppid(), std::chrono::system_clock::now(),
                                                std::chrono::steady_clock::now()});
  return mem_run_start();
}

const MEM_RUN_START& mem_run_start() { return *run_start; }

// What the parent noted stays: the memory is not the child's to give back.
void mem_note_run_start_of_child() {
  if (run_start.exchange(nullptr) != nullptr) mem_note_run_start();
}
