// Process-wide objects that are never destroyed.
#pragma once

#include <new>

/// Static storage: nothing is allocated for the object itself, no destructor runs at exit, and a
/// thread that is late may still use it.
template <class OBJECT>
union MEM_STATIC_STORAGE {
  unsigned char room;
  OBJECT object;

  constexpr MEM_STATIC_STORAGE() : room(0) {}
  MEM_STATIC_STORAGE(const MEM_STATIC_STORAGE&) = delete;
  MEM_STATIC_STORAGE& operator=(const MEM_STATIC_STORAGE&) = delete;
  ~MEM_STATIC_STORAGE() {}

  template <class... ARGUMENTS>
  OBJECT* construct(ARGUMENTS&&... arguments) {
    return new (&object) OBJECT(static_cast<ARGUMENTS&&>(arguments)...);
  }
};

/// An object that is there from load and never destroyed; its constructor has to be constexpr.
template <class OBJECT>
union MEM_NEVER_DESTROYED {
  OBJECT object;

  constexpr MEM_NEVER_DESTROYED() : object() {}
  MEM_NEVER_DESTROYED(const MEM_NEVER_DESTROYED&) = delete;
  MEM_NEVER_DESTROYED& operator=(const MEM_NEVER_DESTROYED&) = delete;
  ~MEM_NEVER_DESTROYED() {}
};
