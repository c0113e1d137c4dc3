// Process-wide objects that are never destroyed at exit.
#pragma once

#include <new>
#include <utility>

#include "mem/base/lifecycle.h"

/// Room for an object that is constructed when wanted: nothing is allocated for it, and no
/// destructor runs at exit. A second construction takes the same room: after the object has been
/// destroyed, or in a child made by fork, which has let go of it.
template <class OBJECT>
class MEM_STATIC_STORAGE {
 public:
  constexpr MEM_STATIC_STORAGE() = default;
  MEM_STATIC_STORAGE(const MEM_STATIC_STORAGE&) = delete;
  MEM_STATIC_STORAGE& operator=(const MEM_STATIC_STORAGE&) = delete;

  template <class... ARGUMENTS>
  OBJECT* construct(ARGUMENTS&&... arguments) {
    return new (m_room) OBJECT(std::forward<ARGUMENTS>(arguments)...);
  }

 private:
  alignas(OBJECT) unsigned char m_room[sizeof(OBJECT)]{};
};

/// Destroys an object in its static storage, if there is one; the pointer is null then.
template <class OBJECT>
void mem_destroy(OBJECT*& object) {
  if (OBJECT* const ended = std::exchange(object, nullptr)) ended->~OBJECT();
}

/// An object that is there from load and never destroyed; its constructor has to be constexpr. At
/// namespace scope: in a function the compiler has its end registered by the first call, which in a
/// hook may come while the C library holds the lock of such registrations.
template <class OBJECT>
union MEM_NEVER_DESTROYED {
  OBJECT object;

  constexpr MEM_NEVER_DESTROYED() : object() {}
  MEM_NEVER_DESTROYED(const MEM_NEVER_DESTROYED&) = delete;
  MEM_NEVER_DESTROYED& operator=(const MEM_NEVER_DESTROYED&) = delete;
  ~MEM_NEVER_DESTROYED() {}
};

/// Lets go of an object in a child made by fork, where another thread may have left it half
/// changed. It stays reachable: a leak checker in the child has nothing to say. Where
/// mem_forked_inside is set, it stays as it is.
template <class OBJECT>
void mem_abandon(OBJECT*& object) {
  [[maybe_unused]] static constinit OBJECT* volatile left_behind = nullptr;
  if (object != nullptr && !mem_forked_inside) left_behind = std::exchange(object, nullptr);
}
