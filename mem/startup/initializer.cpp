// The start-up object: once-per-process start-up and last-out teardown.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "include/tuk_mem.h"
#include "mem/allocator/allocator_functions.h"
#include "mem/base/critical_section.h"
#include "mem/base/lifecycle.h"
#include "mem/host/message.h"
#include "mem/host/settings.h"
#include "mem/oom/thread_wrapper.h"
#include "mem/snapshot/write_snapshot.h"
#include "mem/tracker/snapshot_request.h"

constinit std::atomic<std::int64_t> MEM_INITIALIZER::s_init_counter{0};

namespace {

bool prints_lib_load() { return mem_setting_is_present("MEM_PRINT_LIB_LOAD"); }

// What runs here stands first in the C library's list, and so runs last: behind all that a host
// does at quick_exit, as behind its destructors at exit.
void end_quickly() {
  mem_process_is_ending = true;
  mem_shutdown_tbb_tracking();
}

void start_up() {
  std::at_quick_exit(end_quickly);
  mem_set_snapshot_writer(mem_write_requested_snapshot);
  init_tcmalloc_functions();
  mem_manager.initialize();
  mem_install_thread_wrapper();
  mem_read_korvane_ini_file();
  mem_allocate_spare_memory();
  mem_initialize_tbb_tracking(mem_get_tracking_granularity_from_env());
}

// Leaves the critical section with its mutex gone and no hold.
void destroy_critical_section() {
  if (mem_exiting) return;
  mem_exiting = true;
  mem_critical_section.unlock();
  mem_critical_section.destroy();
  mem_exiting = false;
}

void tear_down() {
  mem_process_is_ending = true;
  mem_cleanup_tbb_tracking();
  mem_free_spare_memory();
  destroy_critical_section();
}

void leave(char const* name, bool print) {
  if (print) std::printf("Unloading: %s\n", name);
  if (std::strncmp(name, "MSG", 3) == 0) mem_tbb_tracking_notify_msg_shutting_down();
  if (--MEM_INITIALIZER::s_init_counter == 0) tear_down();
}

}  // namespace

MEM_INITIALIZER::MEM_INITIALIZER(const char* name) noexcept : m_name(name) {
  if (mem_dll_was_dynamically_loaded) return;
  if (s_init_counter.fetch_add(1) == 0) start_up();
  static const bool print_lib_load = prints_lib_load();
  if (print_lib_load) std::printf("Loading: %s\n", name);
}

MEM_INITIALIZER::~MEM_INITIALIZER() noexcept {
  if (mem_dll_was_dynamically_loaded) return;
  // Read again: a switch set after loading still prints the unloading.
  static const bool print_lib_load = prints_lib_load();
  mem_critical_section.lock();
  try {
    leave(m_name, print_lib_load);
  } catch (...) {
    return;  // the rest of the teardown is skipped
  }
  mem_critical_section.unlock();
}
