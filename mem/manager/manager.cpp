#include <malloc.h>

#include "include/tuk_mem.h"
#include "mem/base/critical_section.h"
#include "mem/base/lifecycle.h"
#include "mem/manager/statistics.h"

namespace {

struct DUMMY_SEGMENT {};

constinit DUMMY_SEGMENT mem_dummy_segment;
constinit bool mem_initialized = false;

}  // namespace

constinit MEM_MANAGER mem_manager;

void MEM_MANAGER::initialize() {
  if (mem_initialized) return;
  mem_initialized = true;
  if (!mem_dll_was_dynamically_loaded) mem_critical_section.initialize();
}

void* MEM_MANAGER::get_default_segment() { return &mem_dummy_segment; }

void MEM_MANAGER::check_memory_guards() {}

std::size_t MEM_MANAGER::msize(void* block) { return malloc_usable_size(block); }

std::uint64_t MEM_MANAGER::current_total_memory() noexcept {
  return static_cast<std::uint64_t>(mem_get_global_current().bytes);
}

std::uint64_t MEM_MANAGER::peak_total_memory() noexcept {
  return static_cast<std::uint64_t>(mem_get_global_peak().bytes);
}

bool mem_is_allocated(void*) { return true; }
