// The library's static initialisation. Everything that needs a constructor to run at load is
// here, in the order in which it has to run; destructors run the other way round. All other
// process-wide objects are constant-initialised and ready before the first of these.
#include <boost/exception_ptr.hpp>
#include <ios>

#include "include/tuk_mem.h"
#include "mem/bins/bin_labels.h"
#include "mem/manager/statistics.h"
#include "mem/pgo/pgo_list.h"
#include "mem/state/totals.h"
#include "mem/state/tracker_state.h"
#include "mem/symbolizer/symbolizer_factory.h"
#include "mem/tracker/fork_handlers.h"
#include "mem/tracker/mapping_observer.h"

namespace {

// 1. The standard streams: start-up prints, and the teardown writes reports.
const std::ios_base::Init standard_streams;

// 2. Start-up. Destroyed after everything below: the teardown is the last thing to happen.
const MEM_INITIALIZER mem_initializer("MEM");

// 3. The exception objects with which Boost passes on bad_alloc and bad_exception, prepared
//    while there is memory.
const boost::exception_ptr prepared_exceptions[] = {
    boost::exception_detail::exception_ptr_static_exception_object<
        boost::exception_detail::bad_alloc_>::e,
    boost::exception_detail::exception_ptr_static_exception_object<
        boost::exception_detail::bad_exception_>::e,
};

// 4. Listing the modules built with profile-guided optimisation, when this is destroyed.
const MEM_PGO_STATIC_DESTRUCTOR s_pgo_destruct_call;

// 5. The tracker's locks and counters. They are ready since load: once start-up has brought the
//    tracker up, or a mapping notified before it has, they may be in use and hold figures.
struct RESET_TRACKER {
  RESET_TRACKER() {
    if (mem_tbb_tracker_inited) return;
    mem_pbin_stats.reset();
    mem_reset_totals();
  }
};
const RESET_TRACKER reset_tracker;

// 6. The tags of open bins, forgotten when the process ends.
struct PROFILE_BIN_LABELS {
  PROFILE_BIN_LABELS() = default;
  PROFILE_BIN_LABELS(const PROFILE_BIN_LABELS&) = delete;
  PROFILE_BIN_LABELS& operator=(const PROFILE_BIN_LABELS&) = delete;
  ~PROFILE_BIN_LABELS() { mem_clear_bin_labels(); }
};
const PROFILE_BIN_LABELS profile_bin_labels;

}  // namespace

// 7. The observer of memory mappings.
MEM_UDM_OBSERVER MEM_UDM_OBSERVER::singleton_instance;

namespace {

// 8. The symbolizer caches, emptied now and before the teardown writes the reports.
struct SYMBOLIZER_TOOLS {
  SYMBOLIZER_TOOLS() { MEM_SYMBOLIZER_FACTORY::end_all_tools(); }
  SYMBOLIZER_TOOLS(const SYMBOLIZER_TOOLS&) = delete;
  SYMBOLIZER_TOOLS& operator=(const SYMBOLIZER_TOOLS&) = delete;
  ~SYMBOLIZER_TOOLS() { MEM_SYMBOLIZER_FACTORY::end_all_tools(); }
};
const SYMBOLIZER_TOOLS symbolizer_tools;

// 9. Destroyed first, before anything here takes time.
struct FORK_HANDLERS {
  FORK_HANDLERS() = default;
  FORK_HANDLERS(const FORK_HANDLERS&) = delete;
  FORK_HANDLERS& operator=(const FORK_HANDLERS&) = delete;
  ~FORK_HANDLERS() { mem_pad_fork_handlers(); }
};
const FORK_HANDLERS fork_handlers;

}  // namespace
