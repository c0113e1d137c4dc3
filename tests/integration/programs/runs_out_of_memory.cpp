// Allocates until there is nothing left. The words on the command line say how: "handler" installs
// a handler of the host's, "library" the library's report, "malloc" allocates with malloc instead
// of new, and "threads" does so on two threads of the host's thread library at once, where the
// library's wrapper has to have installed the report; "meanwhile" installs the handler while the
// wrapper of the first of them is at that. "small" allocates small blocks; "interrupted" by a
// timer; "throws" installs a handler that throws. The host's numbers are grouped all the while.
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include "include/tuk_mem.h"
#include "platform/thr_runtime.h"
#include "platform/thr_thread.h"
#include "tests/support/grouping.h"

namespace {

std::size_t block_size = 1'000'000;

bool with_malloc = false;
std::atomic<bool> set_meanwhile = false;

void* volatile last_block;

void allocate_for_ever() {
  do {
    last_block = with_malloc ? std::malloc(block_size) : ::operator new(block_size);
  } while (last_block != nullptr);
}

void say(std::string_view text) {
  if (write(STDOUT_FILENO, text.data(), text.size()) < 0) std::_Exit(2);
}

void hosts_handler() { say("the host's handler\n"); }

void* thread(void*) {
  allocate_for_ever();
  return nullptr;
}

void on_two_threads() {
  pthread_t threads[2];
  for (pthread_t& started : threads) thr_thread_create(&started, thread, nullptr);
  for (const pthread_t started : threads) thr_thread_join(started, nullptr);
}

void interrupt_all_the_while() {
  std::signal(SIGALRM, [](int) {});
  const itimerval every = {{0, 500}, {0, 500}};
  setitimer(ITIMER_REAL, &every, nullptr);
}

}  // namespace

// The library switches this at every thread's start.
void tbbk_set_new_mode(int) {
  if (set_meanwhile.exchange(false)) mem_set_out_of_memory_handler(hosts_handler);
}

int main(int count, char** words) {
  std::locale::global({std::locale(), new GROUPING});
  bool with_threads = false;
  for (int i = 1; i < count; ++i) {
    const std::string_view word(words[i]);
    if (word == "handler") mem_set_out_of_memory_handler(hosts_handler);
    if (word == "library") mem_set_out_of_memory_handler(nullptr);
    if (word == "throws") mem_set_out_of_memory_handler([] { throw std::size_t{1}; });
    if (word == "small") block_size = 200;
    if (word == "interrupted") interrupt_all_the_while();
    if (word == "malloc") with_malloc = true;
    if (word == "threads") with_threads = true;
    if (word == "meanwhile") set_meanwhile = true;
  }
  if (with_threads)
    on_two_threads();
  else
    allocate_for_ever();
  say("still here\n");
}
