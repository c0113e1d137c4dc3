// A process that ends while eight of its threads do whatever the library lets them do, again and
// again:
//   ends [processes]   500 unless given; each ends in the next of the ways below
// No process may crash, hang or end with another status than it chose, and what it leaves behind
// are whole reports, each once, or none. Every difference is printed; the status is 0 when there
// was none.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "tests/stress/actions.h"
#include "tests/stress/blocks.h"
#include "tests/support/report.h"
#include "tests/support/run_program.h"
#include "tests/support/threads.h"

// As pthread_atfork does, but for good: what a module registers goes when the process's end reaches
// that module, and the C library aborts a fork that is just running handlers then.
extern "C" int __register_atfork(void (*prepare)(), void (*parent)(), void (*child)(),
                                 void* module) noexcept;

namespace {

using std::chrono::milliseconds;

constexpr int workers = 8;
constexpr int failed_check = 99;

void churn() {
  std::vector<void*> blocks;
  for (std::size_t size = 8; size < 58; ++size) blocks.push_back(allocate_block(size));
  for (void* block : blocks) release_block(block);
}

void query() {
  void* block = allocate_block(64);
  MEM_ADDRESS_TRACKER site{};
  mem_get_address_tracker(block, site);
  mem_get_address_tracker(nullptr, site);
  release_block(block);
  mem_get_module_tracker("OTHER", site);
  mem_get_stats();
  if (mem_info_get_process_current_virtual_used() == 0) std::_Exit(failed_check);
  if (std::strlen(mem_get_tbb_exe_string()) > 64) std::_Exit(failed_check);
}

constexpr void (*more_actions[])() = {
    churn,
    query,
    [] {
      switch_off_and_on({1, 2, 4, 8, 64});
    },  // not what decides which leak report there is
    mem_reset_tracking_entries,
    mem_disable_profile_bin_tag_timeline_labels,
    [] {
      static thread_local auto* const buffer = new NEEDS_ANOTHER_THREAD(churn);
      std::ostream out(buffer);
      dump_all(out);
    },
    [] { mem_set_tbb_exe_string(rand() % 2 == 0 ? "one" : "other"); },
    [] { mem_set_print_allocations_callback_enabled(rand() % 2 == 0); },
    mem_write_report_snapshot,
};

// Bins belong to one thread.
void open_and_close_a_bin() {
  const std::string tag = "tag" + std::to_string(rand() % 50);
  mem_open_profile_bin("bin" + std::to_string(rand() % 500), tag);
  churn();
  std::uint64_t bytes[3];
  mem_close_profile_bin(tag, &bytes[0], &bytes[1], &bytes[2]);
}

[[noreturn]] void work(unsigned seed) {
  std::minstd_rand random(seed);
  for (;;) {
    const std::size_t action = random() % (std::size(actions) + std::size(more_actions));
    if (seed == 1)
      open_and_close_a_bin();
    else if (action < std::size(actions))
      actions[action]();
    else
      more_actions[action - std::size(actions)]();
  }
}

[[maybe_unused]] void fork_and_wait() {
  for (;;) {
    const pid_t child = fork();
    if (child == 0) {
      query();
      text_of(dump_all);
      _exit(0);
    }
    waitpid(child, nullptr, 0);
  }
}

struct END {
  char const* name;
  int status;
  bool reports;
  void (*run)();
};

constexpr END ends[] = {
    {"return", 0, true, [] {}},
    {"exit", 3, true, [] { std::exit(3); }},
    {"exit in a thread", 4, true, [] { std::thread([] { std::exit(4); }).join(); }},
    {"two cleanups", 0, true,
     [] { start_threads(2, [](unsigned) { mem_cleanup_tbb_tracking(); }); }},
    {"two shutdowns", 0, true,
     [] { start_threads(2, [](unsigned) { mem_shutdown_tbb_tracking(); }); }},
    {"shutdown, then return", 0, true, mem_shutdown_tbb_tracking},
    {"a thread that ends while main returns", 0, true,
     [] { std::thread(mem_cleanup_tbb_tracking).detach(); }},
// Under ThreadSanitizer the end takes long, and the C library's list of handlers breaks then; under
// AddressSanitizer a child that allocates waits for locks of threads that are gone.
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
    {"a long fork handler", 0, true,
     [] {
       __register_atfork([] { std::this_thread::sleep_for(milliseconds(30)); }, nullptr, nullptr,
                         nullptr);
       std::thread(fork_and_wait).detach();
       std::this_thread::sleep_for(milliseconds(5));
     }},
#endif
    {"quick_exit", 5, true, [] { std::quick_exit(5); }},
};

int be_a_process(std::size_t end, unsigned seed) {
  prepare_process();
  srand(seed);
  mem_set_tbb_exe_string("one");
  for (unsigned worker = 1; worker <= workers; ++worker)
    std::thread(work, worker + (worker > 1 ? seed * workers : 0)).detach();
  std::this_thread::sleep_for(milliseconds(20 + seed % 40));
  ends[end].run();
  return 0;
}

// The driver.

constexpr std::pair<char const*, char const*> first_and_last_lines[] = {
    {"MEM: TBB Leak Checking Summary.", "Total leaked bytes: "},
    {"MEM: TBB ", "Time spent dumping:\t"},
    {"Memory Tracking - Profile ", ""},
    {"\"base address\"", ""},
    {"\"PC\"", ""},
    {"For more detail", "====="}};

// "" when the report is whole: each row has as many cells as the header, which texts have not.
std::string what_is_torn(const std::string& text) {
  std::vector<std::string> lines = split(text, '\n');
  while (!lines.empty() && lines.back().empty()) lines.pop_back();
  if (lines.empty()) return "is empty";
  const auto* known = std::ranges::find_if(first_and_last_lines, [&](const auto& first_and_last) {
    return lines[0].starts_with(first_and_last.first);
  });
  if (known == std::end(first_and_last_lines)) return "begins with " + lines[0];
  if (!lines.back().starts_with(known->second)) return "ends with " + lines.back();
  if (std::ranges::count(lines, lines[0]) != 1) return "is there twice";
  if (std::ranges::count(lines, " memory leak summary") > 1) return "has two summaries";
  const bool quoted = lines[0].starts_with('"');
  const auto cells_in = [&](const std::string& line) {
    return std::ranges::count(line, quoted ? '"' : '\t');
  };
  const std::size_t header = quoted ? 0 : 2;
  for (std::size_t row = header; row < lines.size(); ++row)
    if (!lines[row].starts_with("Time spent") && cells_in(lines[row]) != cells_in(lines[header]))
      return "has a torn row: " + lines[row];
  return "";
}

// What is wrong with what a process leaves, which was asked for one of the leak reports.
std::string fault_of(const RUN& run, const END& end, bool fast) {
  if (run.status() == 124) return "hangs";
  if (run.status() != end.status) return "ends with status " + std::to_string(run.status());
  std::set<std::string> found;
  for (const std::string& name : run.file_names()) {
    if (!name.starts_with("mem_tbb_")) continue;
    found.insert(name.substr(0, name.find('.')));
    if (const std::string torn = what_is_torn(run.file(name)); !torn.empty())
      return name + " " + torn;  // NOLINT(performance-inefficient-string-concatenation)
  }
  const bool reported = found.contains("mem_tbb_leak_warning") != fast &&
                        found.contains("mem_tbb_fast_leak_warning") == fast &&
                        (found.contains("mem_tbb_fileline") || fast);
  if (end.reports ? reported : found.empty()) return "";
  return "leaves " + std::to_string(found.size()) + " kinds of report";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3)
    return be_a_process(std::stoul(argv[1]), static_cast<unsigned>(std::stoul(argv[2])));
  const unsigned processes = argc > 1 ? static_cast<unsigned>(std::stoul(argv[1])) : 500;
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  int faults = 0;
  for (unsigned seed = 0; seed < processes; ++seed) {
    const END& end = ends[seed % std::size(ends)];
    const bool fast = seed / std::size(ends) % 2 != 0;  // every end comes with either
    const RUN run(
        {.path = "timeout",
         .arguments = {"-s", "ABRT", "60", self, std::to_string(seed % std::size(ends)),
                       std::to_string(seed)},
         .environment = {{fast ? "KORVANE_MEM_CHECK_LEAKS_FAST" : "KORVANE_MEM_PROFILE_ALL", "1"},
                         {"KORVANE_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD", "500"}}});
    const std::string fault = fault_of(run, end, fast);
    if (fault.empty()) continue;
    ++faults;
    std::fprintf(stderr, "%s: %s\n%s", end.name, fault.c_str(), run.err().c_str());
  }
  std::printf("%u processes, %d faults\n", processes, faults);
  return faults == 0 ? 0 : 1;
}
