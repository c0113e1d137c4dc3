#include "mem/modules/readable_memory.h"

#include <sys/syscall.h>

#include <cerrno>

namespace {

// A change of the signal mask in a way that there is none of is refused, but only once the kernel
// has read the mask. The call needs no descriptor and no sandbox forbids it. Not by the C library,
// which would set errno.
bool kernel_can_read_word(std::uintptr_t address) {
  constexpr long no_way = -1;
  constexpr long mask_size = 8;
  long result = SYS_rt_sigprocmask;
  register long size asm("r10") = mask_size;
  asm volatile("syscall"
               : "+a"(result)
               : "D"(no_way), "S"(address), "d"(0L), "r"(size)
               : "rcx", "r11", "memory");
  return result != -EFAULT;
}

}  // namespace

bool mem_is_readable(std::uintptr_t begin, std::size_t bytes) {
  if (bytes == 0) return true;
  const std::uintptr_t last = begin + bytes - 1;
  // For a null mask the kernel has nothing to read.
  if (last < begin || mem_page_of(begin) == 0) return false;
  for (std::uintptr_t page = mem_page_of(begin);; page += mem_page_size) {
    if (!kernel_can_read_word(page)) return false;
    if (page == mem_page_of(last)) return true;
  }
}
