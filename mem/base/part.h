// The whole life of one part of the tracker's state, stated in one place.
#pragma once

#include "include/tuk_mem.h"

/// What happens to a part at each turn of the tracker's life. They are types of their own, so
/// that none can be left out or taken for another; where nothing happens, that is said with
/// mem_nothing and the reason.
struct MEM_CREATE {
  /// Brings the part up, empty. `granularity` is what is going to be tracked. May throw.
  void (*run)(MEM_TRACKING_GRANULARITY granularity);
};
struct MEM_RESET {
  /// Forgets what was recorded. Inside the cat section, with tracking on.
  void (*run)();
};
struct MEM_FREE {
  /// Gives the memory back at the end of a run. Inside the cat section, after tracking has ended.
  void (*run)();
};
struct MEM_ABANDON {
  /// In a child made by fork: lets go of everything, unlocked, as if it were not there yet. Other
  /// threads may have held any lock and been half through any change: nothing is destroyed,
  /// allocated or locked here, neither is a pool asked. Where mem_forked_inside is set, only locks
  /// are let go of.
  void (*run)();
};

struct MEM_FOLLOW {
  /// In a child made by fork that is tracked, after everything was let go of: the part begins anew
  /// as the child's own. Nothing of the host's is called. Null where that is its creation. May
  /// throw.
  void (*run)() = nullptr;
};

inline void mem_nothing() {}
inline void mem_nothing(MEM_TRACKING_GRANULARITY) {}

class MEM_PART {
 public:
  constexpr MEM_PART(MEM_CREATE create, MEM_RESET reset, MEM_FREE free, MEM_ABANDON abandon,
                     MEM_FOLLOW follow = {})
      : m_create(create), m_reset(reset), m_free(free), m_abandon(abandon), m_follow(follow) {}

  void create(MEM_TRACKING_GRANULARITY granularity) const { m_create.run(granularity); }
  void reset() const { m_reset.run(); }
  void free() const { m_free.run(); }
  void abandon() const { m_abandon.run(); }
  void follow(MEM_TRACKING_GRANULARITY granularity) const {
    if (m_follow.run != nullptr)
      m_follow.run();
    else
      create(granularity);
  }

 private:
  MEM_CREATE m_create;
  MEM_RESET m_reset;
  MEM_FREE m_free;
  MEM_ABANDON m_abandon;
  MEM_FOLLOW m_follow;
};
