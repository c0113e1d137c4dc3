#include "mem/base/gate.h"

namespace {

[[gnu::tls_model("initial-exec")]] constinit thread_local char own_place = 0;

}  // namespace

// Waits by a futex, which is no cancellation point.
bool MEM_GATE::enter(bool waits) {
  const auto self = reinterpret_cast<THREAD>(&own_place);
  for (THREAD inside = nobody; !m_inside.compare_exchange_strong(inside, self); inside = nobody) {
    if (inside == self || !waits) return false;
    m_inside.wait(inside);
  }
  return true;
}

void MEM_GATE::leave() {
  m_inside.store(nobody);
  m_inside.notify_all();
}
