// What the report of call paths says: for each stack that led to an allocation, what it holds.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/reports/figures.h"
#include "tools/reports/site.h"

namespace reports {

/// The figures of a path, in the order of the report. Smaller than FIGURES: there may be a million.
class PATH_FIGURES {
 public:
  static constexpr std::array<FIGURE, 7> order = {
      CURRENT_BYTES, PEAK_BYTES,        CUMULATIVE_BYTES, CURRENT_BLOCKS,
      PEAK_BLOCKS,   CUMULATIVE_BLOCKS, TEMPORARY_BLOCKS,
  };
  static KNOWN_FIGURES known();

  /// 0 for a figure that paths do not have.
  std::int64_t operator[](FIGURE figure) const;
  std::int64_t& at(std::size_t position) { return m_values[position]; }
  PATH_FIGURES& operator+=(const PATH_FIGURES& other);
  PATH_FIGURES& operator-=(const PATH_FIGURES& other);
  bool operator==(const PATH_FIGURES& other) const = default;
  FIGURES figures() const;

 private:
  std::array<std::int64_t, order.size()> m_values{};
};

/// Numbers of modules, frames, callers and bins count from 1; 0 is none.
struct CALL_PATHS {
  struct MODULE {
    std::uint64_t base = 0;
    std::uint64_t size = 0;
    std::string build_id;  ///< hexadecimal; empty when it has none
    std::string_view name;
    std::string_view path;
  };
  /// Where a frame was executing, inside of its call instruction.
  struct FRAME {
    std::uint32_t module;  ///< 0: in none, the offset is an address
    std::uint64_t offset;  ///< as the module's file counts it
  };
  /// A frame and who called it: the stack from the outermost frame on.
  struct CALLER {
    std::uint32_t caller;  ///< of a lower number; 0: this is the outermost
    std::uint32_t frame;
  };
  struct PATH {
    std::uint32_t caller;  ///< its stack; 0: those of its site beyond the limit, whatever they were
    std::uint32_t site;    ///< index in `sites` plus 1
    std::uint32_t bin;     ///< 0 where paths are not split by bin
    PATH_FIGURES figures;
  };

  const MODULE& module(std::uint32_t number) const { return modules[number - 1]; }
  const FRAME& frame(std::uint32_t number) const { return frames[number - 1]; }
  const CALLER& caller(std::uint32_t number) const { return callers[number - 1]; }
  const SITE& site(const PATH& path) const { return sites[path.site - 1]; }

  std::int64_t beyond_limit = 0;  ///< allocations whose stack was not kept, for want of room
  std::int64_t limit = 0;
  std::int64_t depth = 0;  ///< frames kept of a stack
  bool is_per_bin = false;
  std::vector<MODULE> modules;
  std::vector<FRAME> frames;
  std::vector<SITE> sites;
  std::vector<CALLER> callers;
  std::vector<std::string> bins;
  std::vector<PATH> paths;
};

}  // namespace reports
