#include "mem/base/bookkeeping.h"

constinit std::atomic<bool> mem_pools_are_abandoned = false;
