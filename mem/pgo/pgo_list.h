// The modules that were built with profile-guided optimisation. Relies on mem/base.
#pragma once

/// Whether a module has registered.
extern bool mem_pgo_list_initialized;

/// Lists the modules on standard output when it is destroyed: at the end of the process, if
/// "debug_msg" was on at start-up.
class MEM_PGO_STATIC_DESTRUCTOR {
 public:
  constexpr MEM_PGO_STATIC_DESTRUCTOR() = default;
  MEM_PGO_STATIC_DESTRUCTOR(const MEM_PGO_STATIC_DESTRUCTOR&) = delete;
  MEM_PGO_STATIC_DESTRUCTOR& operator=(const MEM_PGO_STATIC_DESTRUCTOR&) = delete;
  ~MEM_PGO_STATIC_DESTRUCTOR();
};
