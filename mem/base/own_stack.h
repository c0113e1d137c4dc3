// Work that needs more stack than a host's thread may have left.
#pragma once

/// Calls work(argument) on a stack of its own, of 256 KiB, on this thread. False, with nothing
/// done, where there is no memory for one. No signal handler may run meanwhile, and nothing may be
/// thrown.
bool mem_run_on_own_stack(void (*work)(void* argument), void* argument);
