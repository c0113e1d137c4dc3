#include "platform/thr_descriptor.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <atomic>

#include "platform/raw_syscall.h"

namespace {

constexpr int most_numbers = 1024;

constexpr std::uint64_t free_number = 0;
constexpr std::uint64_t being_taken = ~std::uint64_t{0};

// The file a number was taken for; `file` is its inode. A number whose descriptor the host has
// taken over stays occupied until its user gives it up, who would take a newer one there for its
// own.
struct TAKEN {
  std::atomic<std::uint64_t> file{free_number};
  std::atomic<std::uint64_t> device{0};
};

constinit std::array<TAKEN, most_numbers> taken;

TAKEN* place_of(int descriptor) {
  if (descriptor < 0 || descriptor >= most_numbers) return nullptr;
  return &taken[static_cast<std::size_t>(descriptor)];
}

bool stands_for(int descriptor, std::uint64_t device, std::uint64_t file) {
  struct stat now;
  return thr_raw_syscall(SYS_fstat, descriptor, &now) == 0 && now.st_dev == device &&
         now.st_ino == file;
}

int limit_of_numbers() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
  return static_cast<int>(std::min<rlim_t>(limit.rlim_cur, most_numbers));
}

// The highest free number from `lowest` on. Nothing is closed that another thread opens there
// meanwhile.
int copy_to_the_top(int former, int lowest, int end) {
  for (int number = end - 1; number >= lowest; --number) {
    if (taken[static_cast<std::size_t>(number)].file != free_number) continue;
    const long copy = thr_raw_syscall(SYS_fcntl, former, F_DUPFD_CLOEXEC, number);
    if (copy >= 0 && copy < end && taken[static_cast<std::size_t>(copy)].file == free_number)
      return static_cast<int>(copy);
    if (copy >= 0) thr_raw_syscall(SYS_close, copy);
  }
  return -1;
}

bool record(int descriptor) {
  TAKEN& place = taken[static_cast<std::size_t>(descriptor)];
  struct stat file;
  std::uint64_t free = free_number;
  if (thr_raw_syscall(SYS_fstat, descriptor, &file) != 0 ||
      !place.file.compare_exchange_strong(free, being_taken))
    return false;
  place.device = file.st_dev;
  place.file = file.st_ino;
  return true;
}

}  // namespace

int thr_take_descriptor(int former) {
  const int end = limit_of_numbers();
  int number = copy_to_the_top(former, end - end / 4, end);
  thr_raw_syscall(SYS_close, former);
  if (number >= 0 && !record(number)) {
    thr_raw_syscall(SYS_close, number);
    number = -1;
  }
  return number;
}

bool thr_descriptor_is_lost(int descriptor) {
  const TAKEN* place = place_of(descriptor);
  if (place == nullptr) return false;
  const std::uint64_t file = place->file;
  return file != free_number && !stands_for(descriptor, place->device, file);
}

void thr_give_up_descriptor(int descriptor) {
  if (!thr_descriptor_is_lost(descriptor)) thr_raw_syscall(SYS_close, descriptor);
  if (TAKEN* place = place_of(descriptor)) place->file = free_number;
}

void thr_give_up_all_descriptors() {
  for (int number = 0; number < most_numbers; ++number)
    if (taken[static_cast<std::size_t>(number)].file != free_number) thr_give_up_descriptor(number);
}
