#include "mem/tracker/signal_number.h"

#include <signal.h>
#include <string.h>
#include <strings.h>

#include <charconv>

namespace {

struct NAMED {
  char const* name;
  int number;
};

// For which the C library knows another name only.
constexpr NAMED second_names[] = {{"CLD", SIGCHLD}, {"IO", SIGIO}, {"IOT", SIGABRT}};

// Negative for what is no number.
int number_in(char const* digits) {
  int number = 0;
  char const* const end = digits + strlen(digits);
  const auto parsed = std::from_chars(digits, end, number);
  return parsed.ec == std::errc() && parsed.ptr == end ? number : -1;
}

int real_time_signal(char const* name) {
  const int first = SIGRTMIN;
  const int last = SIGRTMAX;
  const bool counts_up = strncasecmp(name, "RTMIN", 5) == 0;
  if (!counts_up && strncasecmp(name, "RTMAX", 5) != 0) return 0;
  char const* const rest = name + 5;
  if (*rest == '\0') return counts_up ? first : last;
  const int distance = *rest == (counts_up ? '+' : '-') ? number_in(rest + 1) : -1;
  if (distance < 0 || distance > last - first) return 0;
  return counts_up ? first + distance : last - distance;
}

}  // namespace

int mem_signal_number(char const* name) {
  if (const int number = number_in(name); number > 0) return number;
  if (strncasecmp(name, "SIG", 3) == 0) name += 3;
  for (int number = 1; number < NSIG; ++number) {
    char const* const known = sigabbrev_np(number);
    if (known != nullptr && strcasecmp(known, name) == 0) return number;
  }
  for (const NAMED& second : second_names)
    if (strcasecmp(second.name, name) == 0) return second.number;
  return real_time_signal(name);
}
