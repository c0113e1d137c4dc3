// Who called whom: the stacks of one process or several, merged.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "tools/reports/call_stacks.h"
#include "tools/reports/row_groups.h"

namespace reports {

struct CALL_TREE_OPTIONS {
  enum DIRECTION {
    CALLERS,  ///< from the lines that allocate outward: the highest level is that of the rows
    CALLEES,  ///< from the outermost function inward
  };
  DIRECTION direction = CALLERS;
  BY by = BY::LINE;  ///< what makes two frames one, as it does rows; not of bins or tags
  FRAMES frames = FRAMES::FOLDED;
  /// By number of place; empty for any. Only stacks with one of `focus` and none of `ignored`.
  std::vector<bool> focus, ignored;
  /// CALLEES: what is outside of the outermost of these is left out, and stacks without one.
  std::vector<bool> from;
  /// Only what was allocated in the bin of this name; empty for all.
  std::string_view bin;
};

class CALL_TREE {
 public:
  struct NODE {
    std::uint32_t place = 0;
    std::uint32_t parent = 0;
    PATH_FIGURES own;  ///< of the stacks that end here
    PATH_FIGURES all;  ///< with those that go on below
  };
  static constexpr std::uint32_t root = 0;

  static CALL_TREE build(std::span<const CALL_STACKS> processes, const CALL_TREE_OPTIONS& options);

  /// The root, and then every node behind its parent. Of peaks, sums of several paths or processes.
  const std::vector<NODE>& nodes() const { return m_nodes; }
  std::span<const std::uint32_t> children(std::uint32_t node) const;
  /// Of every node, those first that hold most.
  void sort_by(FIGURE figure);

 private:
  explicit CALL_TREE(std::vector<NODE> nodes);

  std::vector<NODE> m_nodes;
  std::vector<std::uint32_t> m_children;  // of one node behind those of another
  std::vector<std::size_t> m_begins;      // in it, by node, and its end
};

/// A node of two trees that are the same by place, below nodes that are. 0 for none, but for the
/// roots, which come first.
struct CALL_TREE_PAIR {
  std::uint32_t before;
  std::uint32_t after;
  std::uint32_t parent;  ///< index of the pair that they are below
};

/// All nodes of two trees over one table of places. Frames are the same by function and file (its
/// base name, where the sources have moved), without a file by module: build the trees by function.
std::vector<CALL_TREE_PAIR> pair_nodes(const CALL_TREE& before, const CALL_TREE& after,
                                       const PLACES& places);

}  // namespace reports
