// What the sanitizers are not to report.

// Tests leave blocks behind on purpose.
extern "C" const char* __lsan_default_suppressions() { return "leak:STAND_IN::allocate\n"; }

// The map's nodes come from oneTBB's allocator, which isn't instrumented: handing a freed node to
// another thread looks like a race of the new node's constructor with the old node's last use.
extern "C" const char* __tsan_default_suppressions() {
  return "race:concurrent_hash_map*create_node\n";
}

// A process may end while its threads run: nobody joins them.
extern "C" const char* __tsan_default_options() { return "report_thread_leaks=0"; }
