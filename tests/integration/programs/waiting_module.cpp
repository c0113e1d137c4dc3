// A module whose constructor, which runs under the loader's lock, waits for a thread that
// allocates.
#include <cstdlib>
#include <thread>

[[gnu::constructor]] static void wait_for_a_thread() {
  std::thread([] {
    void* volatile block = std::malloc(300);
    std::free(block);
  }).join();
}
