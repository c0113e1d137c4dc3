#include "mem/pgo/pgo_list.h"

#include <cstdio>
#include <mutex>
#include <set>
#include <utility>

#include "include/tuk_mem.h"
#include "mem/base/bookkeeping.h"
#include "mem/base/lifecycle.h"

constinit bool mem_pgo_list_initialized = false;

namespace {

using PGO_ENTRY = std::pair<MEM_BOOKKEEPING_STRING, MEM_BOOKKEEPING_STRING>;  // module, profile
using PGO_LIST = std::set<PGO_ENTRY, std::less<>, MEM_BOOKKEEPING_ALLOCATOR<PGO_ENTRY>>;

constinit std::mutex pgo_list_lock;

// Never freed: the list is printed during static destruction.
PGO_LIST& mem_get_pgo_dll_list() {
  static PGO_LIST& pgo_list = *new (MEM_BOOKKEEPING_ALLOCATOR<PGO_LIST>().allocate(1)) PGO_LIST;
  return pgo_list;
}

}  // namespace

void mem_register_dll_for_pgo(char const* module, char const* profile) {
  const std::lock_guard guard(pgo_list_lock);
  PGO_LIST& list = mem_get_pgo_dll_list();
  mem_pgo_list_initialized = true;
  list.emplace(module, profile);
}

MEM_PGO_STATIC_DESTRUCTOR::~MEM_PGO_STATIC_DESTRUCTOR() {
  if (!mem_pgo_debug || !mem_pgo_list_initialized) return;
  const std::lock_guard guard(pgo_list_lock);
  for (const auto& [module, profile] : mem_get_pgo_dll_list())
    // No blank before the profile: scripts read the line so.
    std::printf("Debug: PGO: The code module %s was last compiled using PGO for:%s\n",
                module.c_str(), profile.c_str());
}
