// Allocates and frees at a steady number of live blocks, to be profiled from outside: how a pair's
// cost grows with threads, live blocks, call sites and the depth of the stack.
//   growth pairs [threads [live [sites [depth [own]]]]]   of each thread: pairs, and live blocks
// The sites are the same in all threads, unless own is 1: each thread has as many of its own then.
// Prints the nanoseconds of a pair, once all sites are known and all blocks live; the resident
// memory then, in kB; and the time of day when main ends, in seconds.
#include <unistd.h>

#include <array>
#include <barrier>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

extern "C" void* allocate_at(std::size_t size, std::size_t site);

namespace {

struct LOAD {
  std::size_t pairs = 1'000'000;
  std::size_t threads = 1;
  std::size_t live = 1000;
  std::size_t sites = 16;
  std::size_t depth = 5;
  std::size_t own = 0;
};

using CLOCK = std::chrono::steady_clock;

class WORK {
 public:
  WORK(const LOAD& load, std::size_t thread, std::barrier<>& phase)
      : m_load(load),
        m_phase(phase),
        m_first_site(thread * load.own * load.sites),
        m_blocks(load.live) {}

  void run() {
    for (std::size_t site = 0; site < m_load.sites; ++site)
      std::free(allocate_at(16, m_first_site + site));
    for (void*& block : m_blocks) block = allocate();
    m_phase.arrive_and_wait();
    m_phase.arrive_and_wait();
    for (std::size_t pair = 0; pair < m_load.pairs; ++pair) {
      void*& block = m_blocks[next_random() % m_blocks.size()];
      std::free(block);
      block = allocate();
    }
    m_phase.arrive_and_wait();
    for (void* block : m_blocks) std::free(block);
  }

  [[gnu::noinline]] void run_below(std::size_t frames) {
    if (frames == 0)
      run();
    else
      run_below(frames - 1);
    asm volatile("");  // no tail call
  }

 private:
  void* allocate() {
    m_site = m_site + 1 == m_load.sites ? 0 : m_site + 1;
    return allocate_at(16 + 16 * (m_site % 8), m_first_site + m_site);
  }

  std::size_t next_random() {
    m_random = m_random * 6364136223846793005U + 1442695040888963407U;
    return m_random >> 33;
  }

  const LOAD& m_load;
  std::barrier<>& m_phase;
  std::size_t m_first_site;
  std::vector<void*> m_blocks;
  std::size_t m_site = 0;
  std::size_t m_random = 1;
};

long resident_kilobytes() {
  long size = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

double seconds_since_1970() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

void measure(const LOAD& load) {
  std::barrier phase(static_cast<std::ptrdiff_t>(load.threads) + 1);
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < load.threads; ++thread)
    threads.emplace_back([&, thread] { WORK(load, thread, phase).run_below(load.depth); });
  phase.arrive_and_wait();
  const long resident = resident_kilobytes();
  const CLOCK::time_point begin = CLOCK::now();
  phase.arrive_and_wait();
  phase.arrive_and_wait();
  const std::chrono::duration<double, std::nano> elapsed = CLOCK::now() - begin;
  for (std::thread& thread : threads) thread.join();
  std::printf("%.1f %ld %.6f\n", elapsed.count() / static_cast<double>(load.pairs), resident,
              seconds_since_1970());
}

}  // namespace

int main(int argc, char** argv) {
  LOAD load;
  const std::array fields{&load.pairs, &load.threads, &load.live,
                          &load.sites, &load.depth,   &load.own};
  for (std::size_t field = 0; field < fields.size() && static_cast<int>(field) + 1 < argc; ++field)
    *fields[field] = std::stoul(argv[field + 1]);
  measure(load);
}
