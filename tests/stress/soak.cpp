// A host that does everything at once, for as long as it is told: threads that allocate, reallocate
// and free across each other at 64 sites, while tracking is switched and reset, peaks are flushed,
// samples and reports taken, bins and labels set, children forked and modules loaded and unloaded.
// Then, with the books cleared by a last reset, a counted amount of the same without switching or
// resetting; the report has to agree with the program's own books. Status 0 when it does.
//
//   soak [seconds]      3 unless given; run it for 10 minutes after a change of the tracker
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "include/tuk_mem.h"
#include "tests/support/report.h"

namespace {

constexpr std::size_t sites = 64;
constexpr int threads = 8;
constexpr int counted_rounds = 20000;

struct BOOK {
  std::atomic<std::int64_t> blocks{0}, bytes{0}, requested{0}, current_blocks{0}, current_bytes{0};
};
std::array<BOOK, sites> books;

// A block knows where it comes from.
struct LABEL {
  std::size_t site;
  std::int64_t size;
};

std::int64_t allocated_size(void* block) {
  using SIZE = std::size_t (*)(void*);
  static const auto size = reinterpret_cast<SIZE>(dlsym(RTLD_DEFAULT, "tc_malloc_size"));
  return static_cast<std::int64_t>(size(block));
}

// Each number is an allocation site of its own.
template <std::size_t SITE>
[[gnu::noipa]] void* take_at(void* former, std::size_t size) {
  void* volatile block = std::realloc(former, size);
  return block;
}

using TAKE = void* (*)(void* former, std::size_t size);
template <std::size_t... SITE>
constexpr std::array<TAKE, sites> all_sites(std::index_sequence<SITE...>) {
  return {take_at<SITE>...};
}
constexpr std::array<TAKE, sites> take = all_sites(std::make_index_sequence<sites>());

void take_out_of_books(void* block) {
  const LABEL label = *static_cast<LABEL*>(block);
  books[label.site].current_blocks -= 1;
  books[label.site].current_bytes -= label.size;
}

// Allocates, or reallocates a block that the caller has to itself.
void* enter_into_books(void* former, std::size_t site, std::size_t size) {
  if (former != nullptr) take_out_of_books(former);
  void* block = take[site](former, size);
  const LABEL label{site, allocated_size(block)};
  *static_cast<LABEL*>(block) = label;
  books[site].blocks += 1;
  books[site].bytes += label.size;
  books[site].requested += static_cast<std::int64_t>(size);
  books[site].current_blocks += 1;
  books[site].current_bytes += label.size;
  return block;
}

void give_back(void* block) {
  if (block == nullptr) return;
  take_out_of_books(block);
  std::free(block);
}

std::array<std::atomic<void*>, 512> slots;

void work_a_round(std::minstd_rand& random) {
  auto& slot = slots[random() % slots.size()];
  const std::size_t size = sizeof(LABEL) + random() % (random() % 16 == 0 ? 100000 : 300);
  void* former = random() % 4 == 0 ? slot.exchange(nullptr) : nullptr;
  give_back(slot.exchange(enter_into_books(former, random() % sites, size)));
}

template <class WORK>
std::vector<std::thread> start_workers(WORK work) {
  std::vector<std::thread> workers;
  for (int worker = 0; worker < threads; ++worker) workers.emplace_back(work, worker);
  return workers;
}

void join(std::vector<std::thread>& workers) {
  for (std::thread& worker : workers) worker.join();
}

// What the main thread does meanwhile.

int failures = 0;

void open_and_close_bins() {
  static int open = 0;
  std::uint64_t bytes = 0;
  if (open < 5) {
    mem_open_profile_bin("bin", open++ % 2 == 0 ? "even" : "odd");
    return;
  }
  while (open > 0) mem_close_profile_bin(--open % 2 == 0 ? "even" : "odd", &bytes, &bytes, &bytes);
}

void set_label() { mem_set_timeline_label(std::to_string(std::rand() % 10)); }

void dump_reports() {
  std::ostringstream out;
  std::ostringstream detailed;
  mem_dump_tbb_fileline_tracking(out);
  mem_dump_tbb_subsystem_tracking(out);
  mem_dump_tbb_profile_bin_stats_tracking(out);
  mem_dump_tbb_profile_bin_tag_stats_tracking(out);
  mem_dump_tbb_module_tracking(out, detailed);
  mem_dump_tbb_profile_bin_tag_timeline_tracking(out, detailed);
}

void fork_a_child() {
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);  // a hang is a failure
    std::minstd_rand random(7);
    for (int round = 0; round < 100; ++round) std::free(std::malloc(16 + random() % 1000));
    std::exit(mem_tracking_is_enabled(MEM_TRACK_PER_FILELINE) ? 1 : 0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (status != 0) ++failures;
}

void load_a_module() {
  void* module = dlopen("libz.so.1", RTLD_NOW);
  if (module != nullptr) dlclose(module);
}

void map_memory() {
  static char mapping;
  mem_notify_memory_mapping_added(&mapping, 1 << 20);
  mem_notify_memory_mapping_removed(&mapping, 1 << 20);
}

void switch_off_and_on() {
  constexpr int kinds[] = {1, 2, 4, 8, 16, 64, 95};
  const auto kind = static_cast<MEM_TRACKING_GRANULARITY>(kinds[std::rand() % 7]);
  mem_disable_tracking(kind);
  mem_enable_tracking(kind);
}

void suspend_bins() { const MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT suspended; }

using ACTION = void (*)();
constexpr ACTION actions[] = {open_and_close_bins, set_label, dump_reports, fork_a_child,
                              load_a_module, map_memory, mem_tbb_tracking_flush_peak,
                              mem_user_snapshot_tracking_data,
                              // from here on what the books can't follow
                              switch_off_and_on, suspend_bins, mem_reset_tracking_entries};
constexpr std::size_t all_actions = std::size(actions);
constexpr std::size_t accountable_actions = all_actions - 3;

struct COUNTS {
  std::int64_t rounds;
  std::int64_t actions;
};

COUNTS do_everything(std::chrono::seconds time) {
  std::atomic<bool> done{false};
  std::atomic<std::int64_t> rounds{0};
  auto workers = start_workers([&](int worker) {
    std::minstd_rand random(static_cast<unsigned>(worker) + 1);
    for (; !done; ++rounds) work_a_round(random);
  });
  std::int64_t count = 0;
  const auto end = std::chrono::steady_clock::now() + time;
  for (; std::chrono::steady_clock::now() < end; ++count)
    actions[static_cast<std::size_t>(std::rand()) % all_actions]();
  done = true;
  join(workers);
  return {rounds, count};
}

void start_books_afresh() {
  for (auto& slot : slots) give_back(slot.exchange(nullptr));
  mem_enable_tracking(MEM_TRACK_ALL);
  mem_reset_tracking_entries();
  for (BOOK& book : books) book.blocks = book.bytes = book.requested = 0;
}

void do_a_counted_amount() {
  std::atomic<int> working{threads};
  auto workers = start_workers([&](int worker) {
    std::minstd_rand random(static_cast<unsigned>(worker) + 100);
    for (int round = 0; round < counted_rounds; ++round) work_a_round(random);
    --working;
  });
  while (working > 0) actions[static_cast<std::size_t>(std::rand()) % accountable_actions]();
  join(workers);
}

void compare(const REPORT& report, const char* column, std::int64_t booked, std::size_t site) {
  const std::string function =
      "void* (anonymous namespace)::take_at<" + std::to_string(site) + "ul>(void*, unsigned long)";
  const std::int64_t reported = report.sum(column, "Function", function);
  if (reported == booked) return;
  ++failures;
  std::cout << "site " << site << ": " << column << " is " << reported << ", the books say "
            << booked << "\n";
}

void compare_with_report() {
  std::ostringstream text;
  mem_dump_tbb_fileline_tracking(text);
  const REPORT report(text.str());
  for (std::size_t site = 0; site < sites; ++site) {
    const BOOK& book = books[site];
    compare(report, "Current bytes", book.current_bytes, site);
    compare(report, "Current blocks", book.current_blocks, site);
    compare(report, "Cumulative bytes", book.bytes, site);
    compare(report, "Cumulative blocks", book.blocks, site);
    compare(report, "Cumulative requested bytes", book.requested, site);
  }
}

}  // namespace

int main(int count, char** arguments) {
  const std::chrono::seconds time(count > 1 ? std::atoi(arguments[1]) : 3);
  const COUNTS counts = do_everything(time);
  start_books_afresh();
  do_a_counted_amount();
  compare_with_report();
  std::cout << "soak: " << counts.rounds << " rounds of 8 threads and " << counts.actions
            << " actions, then " << threads * counted_rounds << " counted rounds; " << failures
            << " faults\n";
  return failures == 0 ? 0 : 1;
}
