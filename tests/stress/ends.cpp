// A process that ends while eight of its threads do whatever the library lets them do, again and
// again:
//
//   ends [processes]   500 unless given; each ends in the next of the ways below
//
// No process may crash, hang or end with another status than it chose, and what it leaves behind
// are whole reports, each once, or none. Every difference is printed; the status is 0 when there
// was none.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <ostream>
#include <random>
#include <set>
#include <sstream>
#include <streambuf>
#include <string>
#include <thread>
#include <vector>

#include "include/tuk_mem.h"
#include "tests/stress/blocks.h"

// As pthread_atfork does, but for good: what a module registers goes when the process's end reaches
// that module, and the C library aborts a fork that is just running handlers then.
extern "C" int __register_atfork(void (*prepare)(), void (*parent)(), void (*child)(),
                                 void* module) noexcept;

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr int workers = 8;
constexpr int failed_check = 99;

// A stream that gets on only when another thread has allocated.
class NEEDS_ANOTHER_THREAD : public std::streambuf {
 public:
  NEEDS_ANOTHER_THREAD() {
    std::thread([this] { serve(); }).detach();
  }

 private:
  std::streamsize xsputn(char const*, std::streamsize count) override {
    std::unique_lock lock(m_mutex);
    m_asked = true;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return !m_asked; });
    return count;
  }
  int_type overflow(int_type c) override { return traits_type::not_eof(c); }

  [[noreturn]] void serve() {
    for (std::unique_lock lock(m_mutex);;) {
      m_changed.wait(lock, [this] { return m_asked; });
      release_block(allocate_block(100));
      m_asked = false;
      m_changed.notify_all();
    }
  }

  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_asked = false;
};

void dump_all(std::ostream& out) {
  mem_dump_tbb_fileline_tracking(out);
  mem_dump_tbb_subsystem_tracking(out);
  mem_dump_tbb_module_tracking(out, out);
  mem_dump_tbb_profile_bin_stats_tracking(out);
  mem_dump_tbb_profile_bin_tag_stats_tracking(out);
  mem_dump_tbb_profile_bin_tag_timeline_tracking(out, out);
}

void dump_to_another_thread() {
  static thread_local auto* const needy = new NEEDS_ANOTHER_THREAD;
  std::ostream out(needy);
  dump_all(out);
}

void dump_to_text() {
  std::ostringstream out;
  dump_all(out);
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

// All but what decides which of the leak reports is written.
void switch_tracking() {
  constexpr MEM_TRACKING_GRANULARITY kinds[] = {MEM_TRACK_PER_BIN, MEM_TRACK_PER_BIN_DETAILED,
                                                MEM_TRACK_PER_LIBRARY, MEM_TRACK_PER_FILELINE,
                                                MEM_TRACK_AUXILIARY_TIMELINE};
  const MEM_TRACKING_GRANULARITY kind = kinds[static_cast<std::size_t>(rand()) % std::size(kinds)];
  mem_disable_tracking(kind);
  mem_enable_tracking(kind);
}

void churn() {
  std::vector<void*> blocks;
  for (std::size_t size = 8; size < 58; ++size) blocks.push_back(allocate_block(size));
  for (void* block : blocks) release_block(block);
}

constexpr void (*actions[])() = {
    churn,
    churn,
    dump_to_text,
    dump_to_another_thread,
    query,
    switch_tracking,
    mem_reset_tracking_entries,
    mem_tbb_tracking_flush_peak,
    mem_user_snapshot_tracking_data,
    [] { mem_set_timeline_label("label"); },
    [] { mem_set_tbb_exe_string(rand() % 2 == 0 ? "one" : "other"); },
    [] { mem_set_print_allocations_callback_enabled(rand() % 2 == 0); },
    mem_disable_profile_bin_tag_timeline_labels,
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
    if (seed == 1)
      open_and_close_a_bin();
    else
      actions[random() % std::size(actions)]();
  }
}

struct END {
  char const* name;
  int status;
  bool reports;
  std::function<void()> run;
};

void in_two_threads(void (*action)()) {
  std::thread first(action);
  std::thread second(action);
  first.join();
  second.join();
}

[[maybe_unused]] void sleep_in_a_fork_handler() { std::this_thread::sleep_for(milliseconds(30)); }

[[maybe_unused]] void fork_and_wait() {
  for (;;) {
    const pid_t child = fork();
    if (child == 0) {
      query();
      dump_to_text();
      _exit(0);
    }
    waitpid(child, nullptr, 0);
  }
}

const END ends[] = {
    {"return", 0, true, [] {}},
    {"exit", 3, true, [] { std::exit(3); }},
    {"exit in a thread", 4, true, [] { std::thread([] { std::exit(4); }).join(); }},
    {"two cleanups", 0, true, [] { in_two_threads(mem_cleanup_tbb_tracking); }},
    {"two shutdowns", 0, true, [] { in_two_threads(mem_shutdown_tbb_tracking); }},
    {"shutdown, then return", 0, true, mem_shutdown_tbb_tracking},
    {"a thread that ends while main returns", 0, true,
     [] { std::thread(mem_cleanup_tbb_tracking).detach(); }},
// Under ThreadSanitizer the end takes long, and the C library's list of handlers breaks then; under
// AddressSanitizer a child that allocates waits for locks of threads that are gone.
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
    {"a long fork handler", 0, true,
     [] {
       __register_atfork(sleep_in_a_fork_handler, nullptr, nullptr, nullptr);
       std::thread(fork_and_wait).detach();
       std::this_thread::sleep_for(milliseconds(5));
     }},
#endif
    {"quick_exit", 5, false, [] { std::quick_exit(5); }},
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

int faults = 0;

void fault(const END& end, const std::string& what) {
  ++faults;
  std::fprintf(stderr, "%s: %s\n", end.name, what.c_str());
}

// What a process is asked to write: every way to end comes with either.
enum class LEAKS { FULL, FAST };
LEAKS leaks_of(unsigned seed) {
  return seed / std::size(ends) % 2 == 0 ? LEAKS::FULL : LEAKS::FAST;
}

std::vector<std::string> lines_of(const fs::path& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  while (!lines.empty() && lines.back().empty()) lines.pop_back();
  return lines;
}

struct SHAPE {
  char const* first_line;
  char const* last_line;
  char separator;  // every row has as many as the header; 0 for a text
  std::size_t header_row;
};

constexpr SHAPE shapes[] = {{"MEM: TBB Leak Checking Summary.", "Total leaked bytes: ", 0, 0},
                            {"MEM: TBB ", "Time spent dumping:\t", '\t', 2},
                            {"Memory Tracking - Profile ", "", '\t', 2},
                            {"\"base address\"", "", '"', 0},
                            {"\"PC\"", "", '"', 0},
                            {"For more detail", "=====", 0, 0}};

// "" when the report is whole.
std::string what_is_torn(const std::vector<std::string>& lines) {
  if (lines.empty()) return "is empty";
  const auto* shape = std::ranges::find_if(
      shapes, [&](const SHAPE& one) { return lines[0].starts_with(one.first_line); });
  if (shape == std::end(shapes)) return "begins with " + lines[0];
  if (!lines.back().starts_with(shape->last_line)) return "ends with " + lines.back();
  if (std::ranges::count(lines, lines[0]) != 1) return "is there twice";
  if (std::ranges::count(lines, " memory leak summary") > 1) return "has two summaries";
  if (shape->separator == 0) return "";
  const auto cells_in = [&](const std::string& line) {
    return std::ranges::count(line, shape->separator);
  };
  for (std::size_t row = shape->header_row; row < lines.size(); ++row)
    if (!lines[row].starts_with("Time spent dumping:\t") &&
        cells_in(lines[row]) != cells_in(lines[shape->header_row]))
      return "has a torn row: " + lines[row];
  return "";
}

void check_reports(const END& end, const fs::path& directory, LEAKS leaks) {
  std::set<std::string> found;
  for (const auto& entry : fs::directory_iterator(directory)) {
    const std::string name = entry.path().filename();
    if (!name.starts_with("mem_tbb_")) continue;
    found.insert(name.substr(0, name.find('.')));
    if (const std::string torn = what_is_torn(lines_of(entry.path())); !torn.empty())
      fault(end, std::string(name).append(" ").append(torn));
  }
  const bool reported = found.contains("mem_tbb_leak_warning") == (leaks == LEAKS::FULL) &&
                        found.contains("mem_tbb_fast_leak_warning") == (leaks == LEAKS::FAST) &&
                        (found.contains("mem_tbb_fileline") || leaks == LEAKS::FAST);
  if (end.reports ? !reported : !found.empty())
    fault(end, "leaves " + std::to_string(found.size()) + " kinds of report");
}

int status_within(pid_t child, std::chrono::seconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (int status = 0;; std::this_thread::sleep_for(milliseconds(5))) {
    if (waitpid(child, &status, WNOHANG) == child)
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (std::chrono::steady_clock::now() < deadline) continue;
    kill(child, SIGABRT);
    waitpid(child, nullptr, 0);
    return -1;
  }
}

void run_process(std::size_t end, unsigned seed, const fs::path& directory) {
  const LEAKS leaks = leaks_of(seed);
  fs::remove_all(directory);
  fs::create_directories(directory);
  const pid_t child = fork();
  if (child == 0) {
    fs::current_path(directory);
    setenv(leaks == LEAKS::FULL ? "KORVANE_MEM_PROFILE_ALL" : "KORVANE_MEM_CHECK_LEAKS_FAST", "1",
           1);
    setenv("KORVANE_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD", "500", 1);
    const std::string arguments[] = {std::to_string(end), std::to_string(seed)};
    execl("/proc/self/exe", "ends", arguments[0].c_str(), arguments[1].c_str(), nullptr);
    _exit(127);
  }
  constexpr std::chrono::seconds limit(60);
  const int status = status_within(child, limit);
  if (status != ends[end].status)
    fault(ends[end],
          status < 0 ? "hangs" : std::string("ends with status ").append(std::to_string(status)));
  else
    check_reports(ends[end], directory, leaks);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3)
    return be_a_process(std::stoul(argv[1]), static_cast<unsigned>(std::stoul(argv[2])));
  const unsigned processes = argc > 1 ? static_cast<unsigned>(std::stoul(argv[1])) : 500;
  const fs::path directory = fs::temp_directory_path() / ("ends." + std::to_string(getpid()));
  for (unsigned seed = 0; seed < processes; ++seed)
    run_process(seed % std::size(ends), seed, directory);
  fs::remove_all(directory);
  std::printf("%u processes, %d faults\n", processes, faults);
  return faults == 0 ? 0 : 1;
}
