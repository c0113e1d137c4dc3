// A program that does nothing but allocate and free, to be profiled from outside: it links
// neither the library nor an allocator.
//   churn [pairs [threads [own]]]   pairs of each thread, 2 million and 1 unless given
// Sixteen call sites, reached one to eight frames below main (or the thread's function), take
// turns: the same in all threads, or, with "own", others in each of the first eight. Every thread
// keeps a small window of live blocks: a block is freed once as many younger ones have been
// allocated.
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr int sites = 16;
constexpr int sets_of_sites = 8;
constexpr int deepest = 8;
constexpr std::size_t window = 32;
constexpr std::size_t size_step = 24;

// The statement after a call: the call is no tail call, and its frame is on every walked stack.
void keep_frame(void*& block) { asm volatile("" : "+r"(block)::"memory"); }

// Each instance is a site of its own.
template <int SITE>
[[gnu::noinline]] void* allocate() {
  void* block = std::malloc(size_step * (SITE % sites + 1));
  if (block == nullptr) std::abort();
  std::memset(block, SITE, 8);
  keep_frame(block);
  return block;
}

template <int SITE, int FRAMES>
[[gnu::noinline]] void* descend() {
  void* block = nullptr;
  if constexpr (FRAMES == 1)
    block = allocate<SITE>();
  else
    block = descend<SITE, FRAMES - 1>();
  keep_frame(block);
  return block;
}

// allocate is the last of a site's frames.
template <int SITE>
void* reach() {
  constexpr int frames = 1 + SITE % deepest;
  if constexpr (frames == 1)
    return allocate<SITE>();
  else
    return descend<SITE, frames - 1>();
}

using REACH = void* (*)();

template <int... SITE>
constexpr std::array<REACH, sizeof...(SITE)> all_sites(std::integer_sequence<int, SITE...>) {
  return {reach<SITE>...};
}

void run(std::size_t pairs, std::size_t set) {
  static constexpr auto reaches =
      all_sites(std::make_integer_sequence<int, sets_of_sites * sites>());
  REACH const* const own = &reaches[set % sets_of_sites * sites];
  std::array<void*, window> live{};
  for (std::size_t pair = 0; pair < pairs; ++pair) {
    void*& slot = live[pair % window];
    std::free(slot);
    slot = own[pair % sites]();
  }
  for (void* block : live) std::free(block);
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t pairs = argc > 1 ? std::stoul(argv[1]) : 2'000'000;
  const std::size_t threads = argc > 2 ? std::stoul(argv[2]) : 1;
  const bool own_sites = argc > 3 && std::strcmp(argv[3], "own") == 0;
  std::vector<std::thread> others;
  for (std::size_t other = 1; other < threads; ++other)
    others.emplace_back(run, pairs, own_sites ? other : 0);
  run(pairs, 0);
  for (std::thread& other : others) other.join();
}
