#include "mem/text/number_text.h"

#include <algorithm>
#include <cstdlib>

#include "include/tuk_mem.h"

namespace {

void no_refinement(char*) {}

// The decimals of a value below 1 that come before fcvt's first digit.
void append_leading_zeros(FORMAT_BUFFER& buffer, int count) {
  for (int i = 0; i < count; ++i) stl_strlcat(buffer.data(), "0", buffer.size());
}

}  // namespace

constinit const std::array<FORMAT_DOUBLE_HOOK, 6> _cfltcvt_tab = {
    no_refinement, no_refinement, no_refinement, no_refinement, no_refinement, no_refinement};

std::string_view format_integer(std::uint64_t value, unsigned base, const char* digits,
                                FORMAT_BUFFER& buffer) {
  char* const end = buffer.data() + buffer.size();
  char* first = end;
  for (; value != 0; value /= base) *--first = digits[value % base];
  return {first, static_cast<std::size_t>(end - first)};
}

std::string_view format_double(double value, int precision, FORMAT_BUFFER& buffer) {
  FORMAT_BUFFER digits;
  int point = 0;
  int negative = 0;
  // fcvt itself, but for its shared buffer and the heap it takes for a large value. It gives no
  // more than 17 decimals, and a text without digits for infinity and NaN.
  fcvt_r(value, precision, &point, &negative, digits.data(), digits.size());
  stl_strlcpy(buffer.data(), negative != 0 ? "-" : "", buffer.size());
  if (point < 1) {
    stl_strlcat(buffer.data(), "0.", buffer.size());
    append_leading_zeros(buffer, std::min(-point, precision));
    stl_strlcat(buffer.data(), digits.data(), buffer.size());
  } else {
    stl_strlncat(buffer.data(), digits.data(), static_cast<std::size_t>(point), buffer.size());
    stl_strlcat(buffer.data(), ".", buffer.size());
    stl_strlcat(buffer.data(), digits.data() + point, buffer.size());
  }
  return buffer.data();
}
