// Process-wide objects that are never destroyed.
#pragma once

#include <new>
#include <utility>

/// Room for an object that is constructed when wanted: nothing is allocated for it, no destructor
/// runs at exit, and a thread that is late may still use it. A second construction, in a child made
/// by fork, leaves the first object as it is and takes the room beside it.
template <class OBJECT>
class MEM_STATIC_STORAGE {
 public:
  constexpr MEM_STATIC_STORAGE() = default;
  MEM_STATIC_STORAGE(const MEM_STATIC_STORAGE&) = delete;
  MEM_STATIC_STORAGE& operator=(const MEM_STATIC_STORAGE&) = delete;

  template <class... ARGUMENTS>
  OBJECT* construct(ARGUMENTS&&... arguments) {
    return new (m_rooms[std::exchange(m_next, 1)]) OBJECT(std::forward<ARGUMENTS>(arguments)...);
  }

 private:
  alignas(OBJECT) unsigned char m_rooms[2][sizeof(OBJECT)]{};
  int m_next = 0;
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

/// Lets go of an object in a child made by fork, where another thread may have left it half
/// changed. It stays reachable: a leak checker in the child has nothing to say.
template <class OBJECT>
void mem_abandon(OBJECT*& object) {
  [[maybe_unused]] static constinit OBJECT* volatile left_behind = nullptr;
  if (object != nullptr) left_behind = std::exchange(object, nullptr);
}
