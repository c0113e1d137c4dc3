#include "platform/thr_runtime.h"

#include <dlfcn.h>
#include <unistd.h>

#include <new>

#include "platform/thr_exported.h"

int thr_getpid() { return getpid(); }

void thr_debug_break() {}

void* thr_drl_find_function(void* handle, char const* name) {
  return handle == nullptr ? thr_find_exported(name) : dlsym(handle, name);
}

void thr_set_new_handler(void (*handler)()) { std::set_new_handler(handler); }

void tbbk_set_new_mode(int) {}
