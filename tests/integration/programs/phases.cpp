// A host that brackets its work with bins, tags and labels. All sizes are sizes of the allocator,
// so that requested and allocated bytes are the same.
#include <dlfcn.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "include/tuk_mem.h"
#include "tests/integration/programs/run_scenario.h"

namespace {

constexpr std::size_t kib = 1024;
constexpr std::size_t mib = 1024 * kib;

// Opaque to the compiler, which would leave out a block that is only allocated and freed.
[[gnu::noipa]] void* take(std::size_t size) {
  void* volatile block = std::malloc(size);  // no tail call
  return block;
}
[[gnu::noipa]] void give(void* block) { std::free(block); }

class BIN {
 public:
  BIN(const char* name, const char* tag) : m_name(name), m_tag(tag) {
    mem_open_profile_bin(name, tag);
  }
  BIN(const BIN&) = delete;
  BIN& operator=(const BIN&) = delete;
  ~BIN() {
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    std::uint64_t peak = 0;
    mem_close_profile_bin(m_tag, &start, &end, &peak);
    std::printf("bin %s grew by %lld and reached %llu\n", m_name,
                static_cast<long long>(end - start), static_cast<unsigned long long>(peak - start));
  }

 private:
  const char* m_name;
  const char* m_tag;
};

// The first line comes out of an allocated buffer: get that over with.
void warm_up_printing() { std::printf("start\n"); }

// Bins nested, reopened, with and without a tag. What each holds, in blocks of 1 MiB, stands
// beside.
void open_bins() {
  std::array<void*, 8> blocks{};
  warm_up_printing();
  {
    const BIN outer("outer", "T");
    blocks[0] = take(mib);  // T::outer 1
    {
      const BIN inner("inner", "");
      blocks[1] = take(mib);  // T::inner 1
      blocks[2] = take(mib);  // T::inner 2
      give(blocks[1]);        // T::inner 1
    }
    give(blocks[0]);        // T::outer 0
    blocks[3] = take(mib);  // T::outer 1
  }
  {
    const BIN outer("outer", "T");
    blocks[4] = take(mib);  // T::outer 2
  }
  {
    const BIN outer("outer", "");
    blocks[5] = take(mib);  // Root::outer 1
    give(blocks[2]);        // T::inner 0
  }
}

// A large first phase, flushed, and a second one of `second` bytes.
void run_two_phases(std::size_t second) {
  {
    const BIN bin("first", "P1");
    void* a = take(1 * mib);
    void* b = take(2 * mib);
    give(a);  // the peak: 3 MiB in P1
    mem_tbb_tracking_flush_peak();
    give(b);
  }
  const BIN bin("second", "P2");
  void* c = take(second);
  void* d = take(kib);
  give(d);  // a peak of the second phase
  give(c);
}
void flush_before_a_smaller_phase() { run_two_phases(1 * mib); }
void flush_before_a_larger_phase() { run_two_phases(8 * mib); }

// Twenty modules, each seen first at a sample of its own; the module of number n holds n
// blocks of 64 KiB.
void load_modules() {
  using ALLOCATE = void* (*)(std::size_t);
  const std::filesystem::path original = PROGRAMS_DIRECTORY "/libcall_sites_shared.so";
  for (std::size_t number = 1; number <= 20; ++number) {
    const std::string name = "./libmod" + std::to_string(100 + number) + ".so";
    std::filesystem::copy_file(original, name);
    void* module = dlopen(name.c_str(), RTLD_NOW);
    const auto allocate = reinterpret_cast<ALLOCATE>(dlsym(module, "allocate_in_shared_library"));
    for (std::size_t block = 0; block < number; ++block) allocate(64 * kib);
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
  {
    const BIN bin("late", "L");  // its tag sets the label too
    take(4 * kib);
    mem_user_snapshot_tracking_data();
  }
  mem_disable_profile_bin_tag_timeline_labels();
  mem_set_timeline_label("b");
  {
    const BIN bin("later", "L");
    mem_user_snapshot_tracking_data();
  }
  sample("a");
}

// A peak that a release discovers between two samples.
void peak_at_a_release() {
  warm_up_printing();
  mem_set_timeline_label("rise");
  mem_tbb_tracking_flush_peak();
  const BIN bin("rising", "R");
  void* large = take(16 * mib);
  mem_set_timeline_label("peak");
  give(large);
  mem_set_timeline_label("after");
}

constexpr SCENARIO scenarios[] = {
    {"open_bins", open_bins},
    {"flush_before_a_smaller_phase", flush_before_a_smaller_phase},
    {"flush_before_a_larger_phase", flush_before_a_larger_phase},
    {"load_modules", load_modules},
    {"label_samples", label_samples},
    {"peak_at_a_release", peak_at_a_release},
};

}  // namespace

int main(int count, char** arguments) { return run_scenario(scenarios, count, arguments); }
