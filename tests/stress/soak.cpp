// A host that does everything at once, for as long as it is told: threads that allocate, reallocate
// and free across each other at 64 sites, while tracking is switched and reset, peaks are flushed,
// samples and reports taken, bins and labels set, children forked and modules loaded and unloaded.
// Then, with the books cleared by a last reset, as long of the same without switching or resetting;
// the report has to agree with the program's own books. Status 0 when it does.
//   soak [seconds]      3 unless given, for each half; run it for 10 minutes after a change of the
//                       tracker
#include <dlfcn.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <iostream>
#include <random>
#include <utility>
#include <vector>

#include "tests/stress/actions.h"
#include "tests/support/report.h"
#include "tests/support/threads.h"

namespace {

constexpr std::size_t sites = 64;
constexpr unsigned threads = 8;
constexpr std::int64_t largest_mismatched_block = 8128;

std::atomic<int> failures = 0;

// Of each site, in the order of these columns of the report.
constexpr const char* columns[] = {"Current bytes",
                                   "Current blocks",
                                   "Cumulative bytes",
                                   "Cumulative blocks",
                                   "Cumulative requested bytes",
                                   "Cumulative mismatched bytes"};
std::array<std::array<std::atomic<std::int64_t>, std::size(columns)>, sites> books;

void book(std::size_t site, const std::array<std::int64_t, std::size(columns)>& changes) {
  for (std::size_t column = 0; column < changes.size(); ++column)
    books[site][column] += changes[column];
}

// A block knows where it comes from.
struct LABEL {
  std::size_t site;
  std::int64_t size;
  std::thread::id owner;
};

// Each number is an allocation site of its own.
template <std::size_t SITE>
[[gnu::noipa]] void* take_at(void* former, std::size_t size) {
  void* volatile block = std::realloc(former, size);
  return block;
}

constexpr auto take = []<std::size_t... SITE>(std::index_sequence<SITE...>) {
  return std::array{&take_at<SITE>...};
}
(std::make_index_sequence<sites>());

void take_out_of_books(void* block) {
  const LABEL& label = *static_cast<LABEL*>(block);
  const bool mismatched =
      label.owner != std::this_thread::get_id() && label.size <= largest_mismatched_block;
  book(label.site, {-label.size, -1, 0, 0, 0, mismatched ? label.size : 0});
}

// Allocates, or reallocates a block that the caller has to itself.
void* enter_into_books(void* former, std::size_t site, std::size_t size) {
  if (former != nullptr) take_out_of_books(former);
  void* block = take[site](former, size);
  const auto bytes = static_cast<std::int64_t>(malloc_usable_size(block));
  new (block) LABEL{site, bytes, std::this_thread::get_id()};
  book(site, {bytes, 1, bytes, 1, static_cast<std::int64_t>(size), 0});
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

// What only the main thread does meanwhile.

void open_and_close_bins() {
  static int open = 0;
  std::uint64_t bytes = 0;
  if (open < 5) {
    mem_open_profile_bin("bin", open++ % 2 == 0 ? "even" : "odd");
    return;
  }
  while (open > 0) mem_close_profile_bin(--open % 2 == 0 ? "even" : "odd", &bytes, &bytes, &bytes);
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

// A block that this thread has to itself is known.
void query() {
  MEM_ADDRESS_TRACKER site;
  void* const block = std::calloc(1, 100);
  if (!mem_get_address_tracker(block, site)) ++failures;
  std::free(block);
}

void suspend_bins() { const MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT suspended; }

constexpr void (*more_actions[])() = {open_and_close_bins, fork_a_child, load_a_module, query,
                                      // from here on what the books can't follow
                                      [] {
                                        switch_off_and_on({1, 2, 4, 8, 16, 64, 95});
                                      },
                                      suspend_bins, mem_reset_tracking_entries};
constexpr std::size_t all_actions = std::size(actions) + std::size(more_actions);
constexpr std::size_t accountable_actions = all_actions - 3;

// How many rounds the threads worked.
std::int64_t work_for(std::chrono::seconds time, std::size_t kinds_of_action) {
  std::atomic<bool> done{false};
  std::atomic<std::int64_t> rounds{0};
  auto workers = start_threads(threads, [&](unsigned worker) {
    std::minstd_rand random(worker + 1);
    for (; !done; ++rounds) work_a_round(random);
  });
  const auto end = std::chrono::steady_clock::now() + time;
  while (std::chrono::steady_clock::now() < end) {
    const std::size_t action = static_cast<std::size_t>(std::rand()) % kinds_of_action;
    action < std::size(actions) ? actions[action]() : more_actions[action - std::size(actions)]();
  }
  done = true;
  workers.clear();
  return rounds;
}

void start_books_afresh() {
  for (auto& slot : slots) give_back(slot.exchange(nullptr));
  mem_enable_tracking(MEM_TRACK_ALL);
  mem_reset_tracking_entries();
  for (auto& site : books)
    for (auto& figure : site) figure = 0;
}

void compare_with_report() {
  const REPORT report(text_of(dumps[0]));
  for (std::size_t site = 0; site < sites; ++site)
    for (std::size_t column = 0; column < std::size(columns); ++column) {
      const std::int64_t reported =
          report.sum(columns[column], "Function",
                     "void* (anonymous namespace)::take_at<" + std::to_string(site) +
                         "ul>(void*, unsigned long)");
      if (reported == books[site][column]) continue;
      ++failures;
      std::cout << "site " << site << ": " << columns[column] << " is " << reported
                << ", the books say " << books[site][column] << "\n";
    }
}

}  // namespace

int main(int count, char** arguments) {
  const std::chrono::seconds time(count > 1 ? std::atoi(arguments[1]) : 3);
  const std::int64_t rounds = work_for(time, all_actions);
  start_books_afresh();
  const std::int64_t counted_rounds = work_for(time, accountable_actions);
  compare_with_report();
  std::cout << "soak: " << rounds << " rounds of " << threads << " threads, then " << counted_rounds
            << " counted ones; " << failures << " faults\n";
  return failures == 0 ? 0 : 1;
}
