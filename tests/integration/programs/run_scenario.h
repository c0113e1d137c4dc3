// A program of several scenarios; its first argument picks one.
#pragma once

#include <cstddef>
#include <string_view>

struct SCENARIO {
  std::string_view name;
  void (*run)();
};

/// Exit status 2 when there is no such scenario.
template <std::size_t ROWS>
int run_scenario(const SCENARIO (&scenarios)[ROWS], int count, char** arguments) {
  for (const SCENARIO& scenario : scenarios) {
    if (count < 2 || scenario.name != arguments[1]) continue;
    scenario.run();
    return 0;
  }
  return 2;
}
