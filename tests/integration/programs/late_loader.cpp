// A host that is not linked to the library but loads it in mid-run, and lets go of it again.
#include <dlfcn.h>

#include "tests/integration/programs/run_scenario.h"

int main(int, char** arguments) {
  take(1000);
  void* library = dlopen(arguments[1], RTLD_NOW);
  if (library == nullptr) return 1;
  take(3000);
  give(take(2048));
  dlclose(library);
  give(take(4096));
}
