// Work that one thread does while others wait for its end.
#pragma once

#include <atomic>
#include <cstdint>

/// One thread is inside at a time; another one waits until it has left. A thread that is inside
/// already, in a callback or a signal handler of its own work, is turned away instead: it would
/// wait for itself.
class MEM_GATE {
 public:
  /// Inside for a scope, unless turned away; where another thread is inside, as asked for.
  class PASS {
   public:
    enum class WHEN_TAKEN { WAIT, LEAVE };
    explicit PASS(MEM_GATE& gate, WHEN_TAKEN when_taken = WHEN_TAKEN::WAIT)
        : m_gate(gate), m_inside(gate.enter(when_taken == WHEN_TAKEN::WAIT)) {}
    PASS(const PASS&) = delete;
    PASS& operator=(const PASS&) = delete;
    ~PASS() {
      if (m_inside) m_gate.leave();
    }
    explicit operator bool() const { return m_inside; }

   private:
    MEM_GATE& m_gate;
    bool m_inside;
  };

  /// Nobody is inside: in a child made by fork, whoever was may be gone.
  void abandon() { m_inside.store(nobody); }

 private:
  using THREAD = std::uintptr_t;
  static constexpr THREAD nobody = 0;

  bool enter(bool waits);
  void leave();

  std::atomic<THREAD> m_inside{nobody};
};
