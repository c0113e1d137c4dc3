// Numbers as some locales write them.
#pragma once

#include <locale>
#include <string>

struct GROUPING : std::numpunct<char> {
  char do_thousands_sep() const override { return ','; }
  char do_decimal_point() const override { return ';'; }
  std::string do_grouping() const override { return "\1"; }
};
