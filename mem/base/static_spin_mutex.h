// A oneTBB spin mutex that is ready at load.
#pragma once

#include <oneapi/tbb/spin_mutex.h>

/// Storage of a spin mutex, unlocked before any constructor of the process has run. oneTBB's own
/// constructor is no constant expression: left to itself it would run at some moment of static
/// initialisation, possibly under a hook that holds the mutex on another thread.
union MEM_STATIC_SPIN_MUTEX {
  unsigned char unlocked;
  tbb::spin_mutex mutex;

  constexpr MEM_STATIC_SPIN_MUTEX() : unlocked(0) {}
};
