// A host that brackets its work with bins, tags and labels. All sizes are sizes of the allocator,
// so that requested and allocated bytes are the same.
#include <cstdio>
#include <string>

#include "include/tuk_mem.h"
#include "tests/integration/programs/run_scenario.h"

namespace {

constexpr std::size_t kib = 1024;
constexpr std::size_t mib = 1024 * kib;

template <class WORK>
void in_bin(const char* name, const char* tag, WORK work) {
  std::uint64_t start = 0, end = 0, peak = 0;
  mem_open_profile_bin(name, tag);
  work();
  mem_close_profile_bin(tag, &start, &end, &peak);
  std::printf("bin %s grew by %ld and reached %ld\n", name, static_cast<long>(end - start),
              static_cast<long>(peak - start));
}

// Bins nested, reopened, with and without a tag. What each holds, in blocks of 1 MiB, stands
// beside.
void open_bins() {
  void* kept = nullptr;
  in_bin("outer", "T", [&] {
    give(take(4 * mib));         // T::outer 0, 4 at most
    void* released = take(mib);  // T::outer 1
    in_bin("inner", "", [&] {
      void* first = take(mib);  // T::inner 1
      kept = take(mib);         // T::inner 2
      give(first);              // T::inner 1
    });
    give(released);  // T::outer 0
    take(mib);       // T::outer 1
  });
  in_bin("outer", "T", [] { take(mib); });  // T::outer 2
  in_bin("outer", "", [&] {
    take(mib);   // Root::outer 1
    give(kept);  // T::inner 0
  });
}

// A large first phase, flushed, and a second one of `second` bytes.
void run_two_phases(std::size_t second) {
  in_bin("first", "P1", [] {
    void* a = take(1 * mib);
    void* b = take(2 * mib);
    give(a);  // the peak: 3 MiB in P1
    mem_tbb_tracking_flush_peak();
    give(b);
  });
  in_bin("second", "P2", [&] {
    void* c = take(second);
    give(take(kib));  // a peak of the second phase
    give(c);
  });
}

// Twenty modules, each seen first at a sample of its own; the module of number n holds n
// blocks of 64 KiB.
void load_modules() {
  for (std::size_t number = 1; number <= 20; ++number) {
    void* module = load_copy("./libmod" + std::to_string(100 + number) + ".so");
    for (std::size_t block = 0; block < number; ++block) allocate_in(module, 64 * kib);
    mem_set_timeline_label("sample " + std::to_string(number));
    mem_user_snapshot_tracking_data();
  }
}

// Samples labelled a a b a, with a tag that is first charged at the third.
void label_samples() {
  const auto sample = [](const char* label) {
    mem_set_timeline_label(label);
    mem_user_snapshot_tracking_data();
  };
  sample("a");
  sample("a");
  in_bin("late", "L", [] {  // its tag sets the label too
    take(4 * kib);
    mem_user_snapshot_tracking_data();
  });
  mem_disable_profile_bin_tag_timeline_labels();
  mem_set_timeline_label("b");
  in_bin("later", "L", mem_user_snapshot_tracking_data);
  sample("a");
}

// A peak that a release finds, between two samples.
void peak_at_a_release() {
  mem_tbb_tracking_flush_peak();
  in_bin("rising", "R", [] {
    void* large = take(16 * mib);
    mem_set_timeline_label("peak");
    give(large);
    mem_set_timeline_label("after");
  });
}

// Climbs to 16 MiB in steps of one, with a release at each; before, a module holds a quarter of one
// for the time of a sample.
void climb() {
  void* early = allocate_in(load_copy("./libearly.so"), 256 * kib);
  mem_user_snapshot_tracking_data();
  give(early);
  for (int step = 1; step <= 16; ++step) {
    take(mib);
    give(take(kib));
  }
}

constexpr SCENARIO scenarios[] = {
    {"climb", climb},
    {"open_bins", open_bins},
    {"flush_before_a_smaller_phase", [] { run_two_phases(1 * mib); }},
    {"flush_before_a_larger_phase", [] { run_two_phases(8 * mib); }},
    {"load_modules", load_modules},
    {"label_samples", label_samples},
    {"peak_at_a_release", peak_at_a_release},
};

}  // namespace

int main(int count, char** arguments) { return run_scenario(scenarios, count, arguments); }
