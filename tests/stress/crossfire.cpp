// Threads that allocate and free across each other while another one reads and stops the books;
// meant to be run for minutes by hand.
//
//   crossfire [seconds]   10 unless given
//
// Keeps books of its own and compares them with the tracker's at the end, to the byte. Ends with
// status 1 when any figure differs.
#include <malloc.h>

#include <array>
#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <random>
#include <streambuf>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "include/tuk_mem.h"
#include "mem/records/site_map.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/thread_flags.h"
#include "mem/state/totals.h"

namespace {

constexpr int workers = 8;
constexpr int keepers = workers + 1;  // the main thread allocates a little, too
constexpr int sites = 12;
constexpr std::size_t slots = 2048;
constexpr std::size_t largest_mismatched_block = 8128;
constexpr unsigned events_between_queries = 512;

// What every block begins with.
struct BLOCK {
  int site;
  int owner;
  std::size_t requested;
};

struct BOOK {
  std::int64_t current_blocks = 0;
  std::int64_t current_bytes = 0;
  std::int64_t cumulative_blocks = 0;
  std::int64_t cumulative_bytes = 0;
  std::int64_t requested_bytes = 0;
  std::int64_t mismatched_bytes = 0;

  void add(const BOOK& other) {
    current_blocks += other.current_blocks;
    current_bytes += other.current_bytes;
    cumulative_blocks += other.cumulative_blocks;
    cumulative_bytes += other.cumulative_bytes;
    requested_bytes += other.requested_bytes;
    mismatched_bytes += other.mismatched_bytes;
  }
};
using BOOKS = std::array<BOOK, sites>;

// Each thread writes its own; a block is often entered in one and struck out in another.
struct alignas(64) KEEPER {
  BOOKS books{};
};
std::array<KEEPER, keepers> all_keepers;

std::array<std::atomic<BLOCK*>, slots> shared_blocks{};
std::atomic<bool> stopping{false};
std::atomic<int> faults{0};

void fault(char const* what, long long ours, long long theirs) {
  ++faults;
  std::fprintf(stderr, "%s: expected %lld, tracked %lld\n", what, ours, theirs);
}

void expect(char const* what, std::int64_t ours, std::int64_t theirs) {
  if (ours != theirs) fault(what, ours, theirs);
}

// Each instance is a site of its own.
template <int SITE>
[[gnu::noinline]] BLOCK* allocate(std::size_t size) {
  auto* block = static_cast<BLOCK*>(std::malloc(size));
  if (block == nullptr) std::abort();
  block->site = SITE;
  block->requested = size;
  return block;
}

using ALLOCATE = BLOCK* (*)(std::size_t);

template <int... SITE>
constexpr std::array<ALLOCATE, sizeof...(SITE)> all_sites(std::integer_sequence<int, SITE...>) {
  return {allocate<SITE>...};
}
constexpr auto allocates = all_sites(std::make_integer_sequence<int, sites>());

BLOCK* allocate_and_note(int keeper, std::size_t site, std::size_t size) {
  BLOCK* block = allocates[site](size);
  block->owner = keeper;
  const auto bytes = static_cast<std::int64_t>(malloc_usable_size(block));
  BOOK& book = all_keepers[static_cast<std::size_t>(keeper)].books[site];
  book.add({1, bytes, 1, bytes, static_cast<std::int64_t>(size), 0});
  return block;
}

void free_and_note(int keeper, BLOCK* block) {
  const std::size_t bytes = malloc_usable_size(block);
  BOOK& book =
      all_keepers[static_cast<std::size_t>(keeper)].books[static_cast<std::size_t>(block->site)];
  book.current_blocks -= 1;
  book.current_bytes -= static_cast<std::int64_t>(bytes);
  if (block->owner != keeper && bytes <= largest_mismatched_block)
    book.mismatched_bytes += static_cast<std::int64_t>(bytes);
  std::free(block);
}

// A block this thread still has to itself is known to the tracker.
void query(BLOCK* block) {
  MEM_ADDRESS_TRACKER site;
  if (!mem_get_address_tracker(block, site)) fault("a live block's site is known", 1, 0);
}

// A thread's own memory goes with the thread: it may only end once the totals have been compared.
void wait_for_comparison(std::barrier<>& phase) {
  phase.arrive_and_wait();  // all is noted
  phase.arrive_and_wait();  // and compared
}

void work(int keeper, std::barrier<>& phase) {
  std::minstd_rand random(static_cast<unsigned>(keeper + 1));
  phase.arrive_and_wait();
  for (unsigned event = 0; !stopping.load(std::memory_order_relaxed); ++event) {
    const std::size_t site = random() % sites;
    // One site in four asks for more than a release by another thread is counted for.
    const std::size_t size =
        sizeof(BLOCK) + random() % 500 + (site % 4 == 0 ? largest_mismatched_block : 0);
    BLOCK* block = allocate_and_note(keeper, site, size);
    if (event % events_between_queries == 0) query(block);
    if (BLOCK* old = shared_blocks[random() % slots].exchange(block)) free_and_note(keeper, old);
  }
  wait_for_comparison(phase);
}

class NOWHERE : public std::streambuf {
  int_type overflow(int_type c) override { return traits_type::not_eof(c); }
  std::streamsize xsputn(char const*, std::streamsize count) override { return count; }
};

// While a cat is inside nothing moves.
void stop_everything() {
  const MEM_INSIDE_AS_CAT cat;
  const auto events = [] {
    std::uint64_t sum = 0;
    for (const auto& [address, site] : *mem_address_tracker_map)
      sum += site.cumulative_blocks - site.current_blocks + site.cumulative_bytes;
    return static_cast<std::int64_t>(sum);
  };
  const std::int64_t before = events();
  std::this_thread::yield();
  expect("events inside a cat section", before, events());
}

void disturb(std::barrier<>& phase, std::uint64_t& rounds) {
  phase.arrive_and_wait();
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  NOWHERE nowhere;
  std::ostream out(&nowhere);
  while (!stopping) {
    mem_dump_tbb_fileline_tracking(out);
    mem_dump_tbb_subsystem_tracking(out);
    stop_everything();
    ++rounds;
  }
  wait_for_comparison(phase);
}

// What the tracker says beyond the single sites, and moves with them.
struct TOTALS {
  MEMORY_TRACKER_BASE module{};
  MEM_BASE_STATS statistics = mem_get_global_current();
  std::int64_t bytes = mem_current_bytes;

  explicit TOTALS(const std::string& module_name) { mem_get_module_tracker(module_name, module); }
};

BOOKS sum_of_books() {
  BOOKS sum{};
  for (const KEEPER& keeper : all_keepers)
    for (std::size_t site = 0; site < sites; ++site) sum[site].add(keeper.books[site]);
  return sum;
}

void compare_site(const BOOK& book, BLOCK const* block) {
  MEM_ADDRESS_TRACKER site{};
  if (!mem_get_address_tracker(block, site)) fault("a site's first block is known", 1, 0);
  expect("site: current blocks", book.current_blocks,
         static_cast<std::int32_t>(site.current_blocks));
  expect("site: current bytes", book.current_bytes, site.current_bytes);
  expect("site: cumulative blocks", book.cumulative_blocks,
         static_cast<std::int64_t>(site.cumulative_blocks));
  expect("site: cumulative bytes", book.cumulative_bytes,
         static_cast<std::int64_t>(site.cumulative_bytes));
  expect("site: requested bytes", book.requested_bytes,
         static_cast<std::int64_t>(site.cumulative_requested_bytes));
  expect("site: mismatched bytes", book.mismatched_bytes,
         static_cast<std::int64_t>(site.cumulative_mismatched_bytes));
}

void compare_totals(const BOOK& sum, const TOTALS& before, const TOTALS& after) {
  const auto grown = [&](auto MEMORY_TRACKER_BASE::*field) {
    return static_cast<std::int64_t>(after.module.*field - before.module.*field);
  };
  expect("module: current blocks", sum.current_blocks,
         static_cast<std::int32_t>(after.module.current_blocks - before.module.current_blocks));
  expect("module: current bytes", sum.current_bytes, grown(&MEMORY_TRACKER_BASE::current_bytes));
  expect("module: cumulative blocks", sum.cumulative_blocks,
         grown(&MEMORY_TRACKER_BASE::cumulative_blocks));
  expect("module: cumulative bytes", sum.cumulative_bytes,
         grown(&MEMORY_TRACKER_BASE::cumulative_bytes));
  expect("module: requested bytes", sum.requested_bytes,
         grown(&MEMORY_TRACKER_BASE::cumulative_requested_bytes));
  expect("statistics: bytes", sum.current_bytes, after.statistics.bytes - before.statistics.bytes);
  expect("statistics: blocks", sum.current_blocks,
         after.statistics.count - before.statistics.count);
  expect("total bytes", sum.current_bytes, after.bytes - before.bytes);
}

// A first block of every site, kept to the end: by it the site is found again.
std::array<BLOCK*, sites> allocate_first_blocks() {
  std::array<BLOCK*, sites> blocks{};
  for (std::size_t site = 0; site < sites; ++site)
    blocks[site] = allocate_and_note(workers, site, sizeof(BLOCK));
  return blocks;
}

// The name under which the tracker has this program.
std::string own_module() {
  void* probe = std::calloc(1, 1);
  MEM_ADDRESS_TRACKER site{};
  mem_get_address_tracker(probe, site);
  std::free(probe);
  return site.address_info.module_name_buffer;
}

void compare(const std::array<BLOCK*, sites>& first_blocks, const TOTALS& before,
             const TOTALS& after) {
  const BOOKS books = sum_of_books();
  BOOK sum;
  for (std::size_t site = 0; site < sites; ++site) {
    compare_site(books[site], first_blocks[site]);
    sum.add(books[site]);
  }
  compare_totals(sum, before, after);
  std::printf("%lld allocations, %lld bytes freed by other threads\n",
              static_cast<long long>(sum.cumulative_blocks),
              static_cast<long long>(sum.mismatched_bytes));
}

}  // namespace

int main(int argc, char** argv) {
  const std::chrono::seconds duration(argc > 1 ? std::stoi(argv[1]) : 10);
  mem_enable_tracking(MEM_TRACK_PER_BIN | MEM_TRACK_PER_LIBRARY | MEM_TRACK_PER_FILELINE);

  std::barrier phase(keepers + 1);  // all workers, the disturber and this thread
  std::vector<std::thread> threads;
  threads.reserve(workers);
  for (int worker = 0; worker < workers; ++worker)
    threads.emplace_back(work, worker, std::ref(phase));
  std::uint64_t rounds = 0;
  std::thread disturber(disturb, std::ref(phase), std::ref(rounds));

  const std::string module_name = own_module();
  const TOTALS before(module_name);
  const auto first_blocks = allocate_first_blocks();
  phase.arrive_and_wait();
  std::this_thread::sleep_for(duration);
  stopping = true;
  phase.arrive_and_wait();
  const TOTALS after(module_name);
  compare(first_blocks, before, after);
  phase.arrive_and_wait();

  for (std::thread& thread : threads) thread.join();
  disturber.join();
  std::printf("%llu reports and cat sections, %d faults\n", static_cast<unsigned long long>(rounds),
              faults.load());
  return faults == 0 ? 0 : 1;
}
