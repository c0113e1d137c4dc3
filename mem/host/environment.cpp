#include "mem/host/environment.h"

#include <cstdlib>

const char* mem_environment_value(const char* name) {
  return name == nullptr ? nullptr : secure_getenv(name);
}
