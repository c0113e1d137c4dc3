#include "mem/base/bookkeeping.h"

constinit std::atomic<MEM_POOLS> mem_pools = MEM_POOLS::IN_USE;
