// Memory of a mapping of its own, for what a child process is started with.
#pragma once

#include <cstddef>

/// Comes from no allocator: a hook may need it while the host's has none to give. A child made by
/// fork has no copy of it.
class THR_ROOM {
 public:
  /// Zeroed; none when the system has no more.
  explicit THR_ROOM(std::size_t size);
  THR_ROOM(const THR_ROOM&) = delete;
  THR_ROOM& operator=(const THR_ROOM&) = delete;
  ~THR_ROOM();

  bool exists() const { return m_start != nullptr; }

  /// `count` objects, zeroed; their constructors are not run. What is taken must fit the size.
  template <class OBJECT>
  OBJECT* take(std::size_t count) {
    return reinterpret_cast<OBJECT*>(take_bytes(count * sizeof(OBJECT), alignof(OBJECT)));
  }

  /// What is left when the room is to outlive this object; for thr_free_room.
  struct LEFT {
    char* start = nullptr;
    std::size_t size = 0;
  };
  LEFT leave();

 private:
  char* take_bytes(std::size_t size, std::size_t alignment);

  char* m_start = nullptr;
  std::size_t m_size = 0;
  std::size_t m_used = 0;
};

void thr_free_room(THR_ROOM::LEFT room);
