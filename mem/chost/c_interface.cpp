// include/tuk_mem_c.h by the functions of include/tuk_mem.h.
#include <cxxabi.h>

#include <ostream>
#include <streambuf>
#include <utility>

// Both tell the version: where they differ this does not compile, as a macro would be another.
#include "include/tuk_mem.h"
#include "include/tuk_mem_c.h"
#include "include/tuk_mem_scopes.h"

namespace {

template <class... FLAG>
constexpr bool are_same(FLAG... flags) {
  std::uint32_t values[] = {static_cast<std::uint32_t>(flags)...};
  for (std::size_t i = 0; i < sizeof...(flags); i += 2)
    if (values[i] != values[i + 1]) return false;
  return true;
}
static_assert(are_same(TUK_MEM_TRACK_NONE, MEM_TRACK_NONE, TUK_MEM_TRACK_PER_BIN, MEM_TRACK_PER_BIN,
                       TUK_MEM_TRACK_PER_BIN_DETAILED, MEM_TRACK_PER_BIN_DETAILED,
                       TUK_MEM_TRACK_PER_LIBRARY, MEM_TRACK_PER_LIBRARY, TUK_MEM_TRACK_PER_FILELINE,
                       MEM_TRACK_PER_FILELINE, TUK_MEM_TRACK_LEAKS, MEM_TRACK_LEAKS,
                       TUK_MEM_TRACK_LEAKS_FAST, MEM_TRACK_LEAKS_FAST,
                       TUK_MEM_TRACK_AUXILIARY_TIMELINE, MEM_TRACK_AUXILIARY_TIMELINE,
                       TUK_MEM_TRACK_CALL_PATHS, MEM_TRACK_CALL_PATHS, TUK_MEM_TRACK_ALL,
                       MEM_TRACK_ALL));

// No exception may leave to a caller in C; the end of a cancelled thread must.
template <class FUNCTION>
bool answer_of(FUNCTION&& function) try {
  return std::forward<FUNCTION>(function)();
} catch (abi::__forced_unwind&) {
  throw;
} catch (...) {
  return false;
}

template <class FUNCTION>
bool done(FUNCTION&& function) {
  return answer_of([&] {
    std::forward<FUNCTION>(function)();
    return true;
  });
}

std::string text_of(const char* text) { return text == nullptr ? std::string() : text; }

MEM_TRACKING_GRANULARITY granularity_of(std::uint32_t bits) {
  return static_cast<MEM_TRACKING_GRANULARITY>(bits);
}

tuk_mem_base_stats stats_of(const MEM_BASE_STATS& stats) { return {stats.bytes, stats.count}; }

// Unbuffered: the pieces of a report are large, and the file has a buffer of its own.
class FILE_BUFFER final : public std::streambuf {
 public:
  explicit FILE_BUFFER(std::FILE* file) : m_file(file) {}

 private:
  std::streamsize xsputn(const char* text, std::streamsize size) override {
    return static_cast<std::streamsize>(
        std::fwrite(text, 1, static_cast<std::size_t>(size), m_file));
  }
  int_type overflow(int_type c) override {
    return traits_type::eq_int_type(c, traits_type::eof()) ? traits_type::not_eof(c)
                                                           : std::fputc(c, m_file);
  }

  std::FILE* m_file;
};

class FILE_STREAM {
 public:
  explicit FILE_STREAM(std::FILE* file) : m_buffer(file), m_stream(&m_buffer) {}
  std::ostream& stream() { return m_stream; }
  bool took_all() const { return m_stream.good(); }

 private:
  FILE_BUFFER m_buffer;
  std::ostream m_stream;
};

bool dump(std::FILE* out, bool (*to_stream)(std::ostream&)) {
  if (out == nullptr) return false;
  return answer_of([&] {
    FILE_STREAM file(out);
    return to_stream(file.stream()) && file.took_all();
  });
}

bool dump_two(std::FILE* summary, std::FILE* detailed,
              bool (*to_streams)(std::ostream&, std::ostream&)) {
  if (summary == nullptr || detailed == nullptr) return false;
  return answer_of([&] {
    FILE_STREAM first(summary);
    FILE_STREAM second(detailed);
    return to_streams(first.stream(), second.stream()) && first.took_all() && second.took_all();
  });
}

}  // namespace

bool tuk_mem_allocator_is_hooked() { return answer_of(mem_allocator_is_hooked); }

bool tuk_mem_enable_tracking(std::uint32_t bits) {
  return done([=] { mem_enable_tracking(granularity_of(bits)); });
}

bool tuk_mem_disable_tracking(std::uint32_t bits) {
  return done([=] { mem_disable_tracking(granularity_of(bits)); });
}

bool tuk_mem_tracking_is_enabled(std::uint32_t bits) {
  return answer_of([=] { return mem_tracking_is_enabled(granularity_of(bits)); });
}

bool tuk_mem_reset_tracking_entries() { return done(mem_reset_tracking_entries); }

bool tuk_mem_set_tbb_exe_string(const char* exe_string) {
  return done([=] { mem_set_tbb_exe_string(exe_string); });
}

// The C++ functions take strings, whose making and end is no allocation of the host's.
bool tuk_mem_open_profile_bin(const char* name, const char* tag) {
  const MEM_UNTRACKED_THREAD untracked;
  return done([=] { mem_open_profile_bin(text_of(name), text_of(tag)); });
}

bool tuk_mem_close_profile_bin(const char* tag, tuk_mem_phase_figures* figures) {
  const MEM_UNTRACKED_THREAD untracked;
  return done([=] {
    tuk_mem_phase_figures measured{};
    mem_close_profile_bin(text_of(tag), &measured.start_bytes, &measured.end_bytes,
                          &measured.peak_bytes);
    if (figures != nullptr) *figures = measured;
  });
}

bool tuk_mem_set_timeline_label(const char* label) {
  const MEM_UNTRACKED_THREAD untracked;
  return done([=] { mem_set_timeline_label(text_of(label)); });
}

bool tuk_mem_disable_profile_bin_tag_timeline_labels() {
  return done(mem_disable_profile_bin_tag_timeline_labels);
}

tuk_mem_base_stats tuk_mem_get_global_current() { return stats_of(mem_get_global_current()); }

tuk_mem_base_stats tuk_mem_get_global_peak() { return stats_of(mem_get_global_peak()); }

tuk_mem_base_stats tuk_mem_get_local_peak() { return stats_of(mem_get_local_peak()); }

tuk_mem_base_stats tuk_mem_enter_local_region() { return stats_of(mem_enter_local_region()); }

tuk_mem_base_stats tuk_mem_exit_local_region(tuk_mem_base_stats saved) {
  return stats_of(mem_exit_local_region({saved.bytes, saved.count}));
}

bool tuk_mem_tbb_tracking_flush_peak() { return done(mem_tbb_tracking_flush_peak); }

bool tuk_mem_user_snapshot_tracking_data() { return done(mem_user_snapshot_tracking_data); }

bool tuk_mem_write_report_snapshot() { return done(mem_write_report_snapshot); }

bool tuk_mem_dump_tbb_fileline_tracking(std::FILE* out) {
  return dump(out, mem_dump_tbb_fileline_tracking);
}

bool tuk_mem_dump_tbb_subsystem_tracking(std::FILE* out) {
  return dump(out, mem_dump_tbb_subsystem_tracking);
}

bool tuk_mem_dump_tbb_profile_bin_stats_tracking(std::FILE* out) {
  return dump(out, mem_dump_tbb_profile_bin_stats_tracking);
}

bool tuk_mem_dump_tbb_profile_bin_tag_stats_tracking(std::FILE* out) {
  return dump(out, mem_dump_tbb_profile_bin_tag_stats_tracking);
}

bool tuk_mem_dump_tbb_module_tracking(std::FILE* summary, std::FILE* detailed) {
  return dump_two(summary, detailed, mem_dump_tbb_module_tracking);
}

bool tuk_mem_dump_tbb_profile_bin_tag_timeline_tracking(std::FILE* summary, std::FILE* detailed) {
  return dump_two(summary, detailed, mem_dump_tbb_profile_bin_tag_timeline_tracking);
}

bool tuk_mem_shutdown_tbb_tracking() { return done(mem_shutdown_tbb_tracking); }
