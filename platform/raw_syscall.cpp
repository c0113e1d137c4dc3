#include "platform/raw_syscall.h"

THR_BARE long thr_kernel(long number, long a, long b, long c, long d, long e) {
  register long fourth asm("r10") = d;
  register long fifth asm("r8") = e;
  asm volatile("syscall"
               : "+a"(number)
               : "D"(a), "S"(b), "d"(c), "r"(fourth), "r"(fifth)
               : "rcx", "r11", "memory");
  return number;
}
