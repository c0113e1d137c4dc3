// Checked conditions. A failed one is fatal: its text goes to the host's internal-error reporter
// under the name of the source it belongs to, whichever file raises it.
#pragma once

namespace MEM_SOURCE {
inline constexpr const char* tracker = "mem/mem_tbb_tracker";
inline constexpr const char* profile_bins = "mem/mem_tbb_tracker_profile_bins";
inline constexpr const char* addr2line = "mem/mem_tbb_tracker_symbolizer_addr2line";
inline constexpr const char* addr2line_inlining =
    "mem/mem_tbb_tracker_symbolizer_addr2line_inlining";
}  // namespace MEM_SOURCE

[[noreturn, gnu::cold]] void mem_check_failed(const char* condition, const char* source, int line);

/// `condition` is the text reported, in the words of the expression passed as `holds`.
inline void mem_check(bool holds, const char* condition, const char* source = MEM_SOURCE::tracker,
                      int line = __builtin_LINE()) {
  if (!holds) [[unlikely]]
    mem_check_failed(condition, source, line);
}
