#include "platform/thr_room.h"

#include <sys/mman.h>

#include <utility>

THR_ROOM::THR_ROOM(std::size_t size) {
  void* mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (mapping == MAP_FAILED) return;
  madvise(mapping, size, MADV_DONTFORK);
  m_start = static_cast<char*>(mapping);
  m_size = size;
}

THR_ROOM::~THR_ROOM() { thr_free_room(leave()); }

char* THR_ROOM::take_bytes(std::size_t size, std::size_t alignment) {
  m_used = (m_used + alignment - 1) / alignment * alignment;
  char* taken = m_start + m_used;
  m_used += size;
  return taken;
}

THR_ROOM::LEFT THR_ROOM::leave() { return {std::exchange(m_start, nullptr), m_size}; }

void thr_free_room(THR_ROOM::LEFT room) {
  if (room.start != nullptr) munmap(room.start, room.size);
}
