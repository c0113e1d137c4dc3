// Waiting for another thread without sleeping.
#pragma once

#include <sched.h>

/// Spins for ever longer, then gives the processor to others.
class MEM_BACK_OFF {
 public:
  void pause() {
    constexpr int most_spins = 16;
    if (m_spins > most_spins) {
      sched_yield();
      return;
    }
    for (int spin = 0; spin < m_spins; ++spin) __builtin_ia32_pause();
    m_spins *= 2;
  }

 private:
  int m_spins = 1;
};
