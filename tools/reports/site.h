// Where memory is asked for.
#pragma once

#include <cstdint>
#include <string_view>

#include "tools/reports/figures.h"

namespace reports {

/// What is known of an address; the texts are those of the run.
struct PLACE {
  std::string_view module;
  std::string_view file;
  std::uint32_t line = 0;
  std::string_view function;
  bool is_catch_all = false;  ///< blocks of no site: the row OTHER

  bool operator==(const PLACE&) const = default;
};

/// An allocation site: one address.
struct SITE : PLACE {
  std::uint64_t address = 0;
  FIGURES figures;

  /// Whether blocks of it are live. The catch-all may be below zero, by releases of blocks from
  /// before tracking, which makes up for nothing.
  bool is_live() const { return figures[CURRENT_BLOCKS] > 0; }
};

}  // namespace reports
