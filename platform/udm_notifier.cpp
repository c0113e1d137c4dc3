#include "platform/udm_notifier.h"

#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <new>

namespace {

using OBSERVER = UDM_BAREBONES_NOTIFIER::OBSERVER;

struct PLACE {
  std::atomic<OBSERVER*> observer = nullptr;
  std::atomic<int> calls = 0;  // running, of whoever stands here
};

// No lock and no heap: a notification may come from any thread, also from inside the allocator, and
// whatever thread another one forks from.
struct PLACES {
  PLACE places[8];
  std::atomic<PLACES*> next = nullptr;
};

// Never destroyed: observers of modules that unload last still remove themselves.
constinit PLACES first_places;

void add_places() {
  void* const room =
      mmap(nullptr, sizeof(PLACES), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (room == MAP_FAILED) throw std::bad_alloc();
  PLACES* last = &first_places;
  for (PLACES* next = last; next != nullptr; next = last->next) last = next;
  PLACES* none = nullptr;
  if (!last->next.compare_exchange_strong(none, new (room) PLACES)) munmap(room, sizeof(PLACES));
}

// Calls `visit` for every place until it answers true; whether it did.
template <class VISIT>
bool any_place(VISIT visit) {
  for (PLACES* block = &first_places; block != nullptr; block = block->next)
    for (PLACE& place : block->places)
      if (visit(place)) return true;
  return false;
}

// A call of an observer that runs on this thread, and the one it was made in.
class CALL {
 public:
  explicit CALL(PLACE& place) : m_place(place), m_outer(innermost) {
    ++place.calls;
    innermost = this;
  }
  CALL(const CALL&) = delete;
  CALL& operator=(const CALL&) = delete;
  ~CALL() {
    innermost = m_outer;
    --m_place.calls;
  }

  static bool is_running() { return innermost != nullptr; }

  // In a child made by fork, only this thread's calls go on.
  static void count_in_child() {
    any_place([](PLACE& place) {
      place.calls = 0;
      return false;
    });
    for (const CALL* call = innermost; call != nullptr; call = call->m_outer) ++call->m_place.calls;
  }

 private:
  PLACE& m_place;
  const CALL* m_outer;

  [[gnu::tls_model("initial-exec")]] static constinit thread_local const CALL* innermost;
};

constinit thread_local const CALL* CALL::innermost = nullptr;

constinit std::atomic<bool> fork_handler_is_registered = false;

template <class NOTIFY>
void notify_each(NOTIFY notify) {
  any_place([&](PLACE& place) {
    if (place.observer == nullptr) return false;
    const CALL call(place);
    // Only now: who removes it clears the place first, and looks for running calls then.
    if (OBSERVER* const observer = place.observer) notify(*observer);
    return false;
  });
}

// No cancellation point: observers are removed by destructors.
void sleep_a_millisecond() {
  constexpr timespec millisecond = {.tv_sec = 0, .tv_nsec = 1'000'000};
  syscall(SYS_nanosleep, &millisecond, nullptr);
}

// A call that does not end by then waits for something that this thread holds.
void wait_for_calls(const PLACE& place) {
  constexpr int milliseconds = 1000;
  for (int i = 0; i < milliseconds && place.calls != 0; ++i) sleep_a_millisecond();
}

}  // namespace

void UDM_BAREBONES_NOTIFIER::add_observer(OBSERVER* observer) {
  if (!fork_handler_is_registered.exchange(true))
    pthread_atfork(nullptr, nullptr, CALL::count_in_child);
  const auto stands_at = [observer](PLACE& place) {
    OBSERVER* nobody = nullptr;
    return place.observer.compare_exchange_strong(nobody, observer);
  };
  while (!any_place(stands_at)) add_places();
}

void UDM_BAREBONES_NOTIFIER::remove_observer(OBSERVER* observer) {
  any_place([observer](PLACE& place) {
    OBSERVER* standing = observer;
    if (place.observer.compare_exchange_strong(standing, nullptr) && !CALL::is_running())
      wait_for_calls(place);
    return false;
  });
}

bool UDM_BAREBONES_NOTIFIER::is_registered(OBSERVER const* observer) {
  return any_place([observer](const PLACE& place) { return place.observer == observer; });
}

void UDM_BAREBONES_NOTIFIER::notify_added(void const* address, unsigned long size) {
  notify_each([&](OBSERVER& observer) { observer.mapping_added(address, size); });
}

void UDM_BAREBONES_NOTIFIER::notify_removed(void const* address, unsigned long size) {
  notify_each([&](OBSERVER& observer) { observer.mapping_removed(address, size); });
}
