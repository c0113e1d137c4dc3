// A host that is not linked to the library but loads it in mid-run, and lets go of it again.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace {
[[gnu::noipa]] void* take(std::size_t size) {
  void* volatile block = std::malloc(size);  // no tail call
  return block;
}
}  // namespace

int main(int, char** arguments) {
  take(1000);
  void* library = dlopen(arguments[1], RTLD_NOW);
  if (library == nullptr) return 1;
  take(3000);
  std::free(take(2048));
  dlclose(library);
  std::free(take(4096));
  return 0;
}
