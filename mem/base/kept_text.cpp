#include "mem/base/kept_text.h"

#include <mutex>

#include "mem/base/bookkeeping.h"
#include "mem/base/spin_lock.h"
#include "mem/base/static_storage.h"

namespace {

struct KEPT {
  KEPT* next;
  std::string_view text;
};

constinit MEM_SPIN_LOCK<MEM_LOCK_ORDER::TEXTS> lock;
constinit KEPT* newest = nullptr;

KEPT* find(std::string_view text) {
  KEPT* kept = newest;
  while (kept != nullptr && kept->text != text) kept = kept->next;
  return kept;
}

KEPT* add(std::string_view text) {
  char* const copy = MEM_BOOKKEEPING_ALLOCATOR<char>().allocate(text.size() + 1);
  copy[text.copy(copy, text.size())] = '\0';
  newest = new (MEM_BOOKKEEPING_ALLOCATOR<KEPT>().allocate(1))
      KEPT{newest, std::string_view(copy, text.size())};
  return newest;
}

}  // namespace

char const* mem_keep_text(std::string_view text) {
  const std::lock_guard guard(lock);
  KEPT* const known = find(text);
  return (known != nullptr ? known : add(text))->text.data();
}

void mem_abandon_kept_texts() {
  mem_abandon(newest);
  lock.abandon();
}
