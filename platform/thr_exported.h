// Functions found by their names.
#pragma once

/// Address of what the process exports by that name, as dlsym finds it; null for nothing, and then
/// dlerror has nothing to tell of it.
void* thr_find_exported(char const* name);
