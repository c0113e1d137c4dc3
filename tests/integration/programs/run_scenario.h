// A program of several scenarios; its first argument picks one.
#pragma once

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string_view>

struct SCENARIO {
  std::string_view name;
  void (*run)();
};

/// Exit status 2 when there is no such scenario. Standard output gets a buffer that is no block:
/// without the C library's debug information it would be charged to the program's line.
template <std::size_t ROWS>
int run_scenario(const SCENARIO (&scenarios)[ROWS], int count, char** arguments) {
  static char buffer[BUFSIZ];
  std::setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
  for (const SCENARIO& scenario : scenarios) {
    if (count < 2 || scenario.name != arguments[1]) continue;
    scenario.run();
    return 0;
  }
  return 2;
}

/// malloc and free, opaque to the compiler, which would leave out a block that is only allocated
/// and freed. The line in take is the allocation site.
[[gnu::noipa]] inline void* take(std::size_t size) {
  void* volatile block = std::malloc(size);  // no tail call
  return block;
}
[[gnu::noipa]] inline void give(void* block) { std::free(block); }

/// The exit status of a forked child that does this, or 128 + the signal it died of.
template <class WORK>
int status_of_child(WORK work, pid_t (*fork_child)() = fork) {
  const pid_t child = fork_child();
  if (child == 0) {
    alarm(20);  // a hang is a failure
    work();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// A copy of the shared library of the call sites, as a module of its own.
inline void* load_copy(const std::string& name) {
  std::filesystem::copy_file(PROGRAMS_DIRECTORY "/libcall_sites_shared.so", name);
  return dlopen(name.c_str(), RTLD_NOW);
}
inline void* allocate_in(void* module, std::size_t size) {
  using ALLOCATE = void* (*)(std::size_t);
  return reinterpret_cast<ALLOCATE>(dlsym(module, "allocate_in_shared_library"))(size);
}
