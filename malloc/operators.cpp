// operator new and operator delete, in all their forms.
#include <cstddef>
#include <new>

#include "malloc/forwarding.h"

#define EXPORTED [[gnu::visibility("default")]]

namespace {

using std::align_val_t, std::nothrow_t, std::size_t;

// A reference is passed as a pointer is, and that can be kept by value.
using NEW = void*(size_t);
using NEW_NOTHROW = void*(size_t, const nothrow_t*) noexcept;
using NEW_ALIGNED = void*(size_t, align_val_t);
using NEW_ALIGNED_NOTHROW = void*(size_t, align_val_t, const nothrow_t*) noexcept;
using DELETE = void(void*) noexcept;
using DELETE_NOTHROW = void(void*, const nothrow_t*) noexcept;
using DELETE_ALIGNED = void(void*, align_val_t) noexcept;
using DELETE_ALIGNED_NOTHROW = void(void*, align_val_t, const nothrow_t*) noexcept;
using DELETE_SIZED = void(void*, size_t) noexcept;
using DELETE_SIZED_ALIGNED = void(void*, size_t, align_val_t) noexcept;

template <class FUNCTION, MEM_NEXT_NAME NAME, class... REST>
[[gnu::always_inline]] inline void* create(size_t size, REST... rest) {
  return mem_allocate<MEM_NEXT<FUNCTION, NAME>, MEM_NEW_HANDLER::BY_NEXT>(mem_default_alignment,
                                                                          size, size, rest...);
}

template <class FUNCTION, MEM_NEXT_NAME NAME, class... REST>
[[gnu::always_inline]] inline void destroy(void* block, REST... rest) {
  mem_release<MEM_NEXT<FUNCTION, NAME>>(block, rest...);
}

}  // namespace

EXPORTED void* operator new(size_t size) { return create<NEW, "_Znwm">(size); }
EXPORTED void* operator new[](size_t size) { return create<NEW, "_Znam">(size); }
EXPORTED void* operator new(size_t size, const nothrow_t& tag) noexcept {
  return create<NEW_NOTHROW, "_ZnwmRKSt9nothrow_t">(size, &tag);
}
EXPORTED void* operator new[](size_t size, const nothrow_t& tag) noexcept {
  return create<NEW_NOTHROW, "_ZnamRKSt9nothrow_t">(size, &tag);
}
EXPORTED void* operator new(size_t size, align_val_t alignment) {
  return create<NEW_ALIGNED, "_ZnwmSt11align_val_t">(size, alignment);
}
EXPORTED void* operator new[](size_t size, align_val_t alignment) {
  return create<NEW_ALIGNED, "_ZnamSt11align_val_t">(size, alignment);
}
EXPORTED void* operator new(size_t size, align_val_t alignment, const nothrow_t& tag) noexcept {
  return create<NEW_ALIGNED_NOTHROW, "_ZnwmSt11align_val_tRKSt9nothrow_t">(size, alignment, &tag);
}
EXPORTED void* operator new[](size_t size, align_val_t alignment, const nothrow_t& tag) noexcept {
  return create<NEW_ALIGNED_NOTHROW, "_ZnamSt11align_val_tRKSt9nothrow_t">(size, alignment, &tag);
}

EXPORTED void operator delete(void* block) noexcept { destroy<DELETE, "_ZdlPv">(block); }
EXPORTED void operator delete[](void* block) noexcept { destroy<DELETE, "_ZdaPv">(block); }
EXPORTED void operator delete(void* block, const nothrow_t& tag) noexcept {
  destroy<DELETE_NOTHROW, "_ZdlPvRKSt9nothrow_t">(block, &tag);
}
EXPORTED void operator delete[](void* block, const nothrow_t& tag) noexcept {
  destroy<DELETE_NOTHROW, "_ZdaPvRKSt9nothrow_t">(block, &tag);
}
EXPORTED void operator delete(void* block, align_val_t alignment) noexcept {
  destroy<DELETE_ALIGNED, "_ZdlPvSt11align_val_t">(block, alignment);
}
EXPORTED void operator delete[](void* block, align_val_t alignment) noexcept {
  destroy<DELETE_ALIGNED, "_ZdaPvSt11align_val_t">(block, alignment);
}
EXPORTED void operator delete(void* block, align_val_t alignment, const nothrow_t& tag) noexcept {
  destroy<DELETE_ALIGNED_NOTHROW, "_ZdlPvSt11align_val_tRKSt9nothrow_t">(block, alignment, &tag);
}
EXPORTED void operator delete[](void* block, align_val_t alignment, const nothrow_t& tag) noexcept {
  destroy<DELETE_ALIGNED_NOTHROW, "_ZdaPvSt11align_val_tRKSt9nothrow_t">(block, alignment, &tag);
}
EXPORTED void operator delete(void* block, size_t size) noexcept {
  destroy<DELETE_SIZED, "_ZdlPvm">(block, size);
}
EXPORTED void operator delete[](void* block, size_t size) noexcept {
  destroy<DELETE_SIZED, "_ZdaPvm">(block, size);
}
EXPORTED void operator delete(void* block, size_t size, align_val_t alignment) noexcept {
  destroy<DELETE_SIZED_ALIGNED, "_ZdlPvmSt11align_val_t">(block, size, alignment);
}
EXPORTED void operator delete[](void* block, size_t size, align_val_t alignment) noexcept {
  destroy<DELETE_SIZED_ALIGNED, "_ZdaPvmSt11align_val_t">(block, size, alignment);
}
