#include "tools/reports/call_tree.h"

#include <algorithm>
#include <map>
#include <unordered_map>

namespace reports {

namespace {

using NODE = CALL_TREE::NODE;
using STACK = CALL_STACKS::STACK;

class BUILDER {
 public:
  explicit BUILDER(const CALL_TREE_OPTIONS& options) : m_options(options), m_nodes(1) {}

  void add(const CALL_STACKS& process) {
    m_places = &process.places();
    STACK stack;
    for (const CALL_PATHS::PATH& path : process.paths().paths) {
      if (!is_of_bin(process.paths(), path)) continue;
      process.get(path, m_options.frames, stack);
      if (is_wanted(stack) && cut(stack)) add(stack, path.figures);
    }
  }

  std::vector<NODE> finished() && {
    for (std::size_t i = m_nodes.size(); i-- > 0;) {
      NODE& node = m_nodes[i];
      node.all += node.own;
      if (i != CALL_TREE::root) m_nodes[node.parent].all += node.all;
    }
    return std::move(m_nodes);
  }

 private:
  bool is_of_bin(const CALL_PATHS& paths, const CALL_PATHS::PATH& path) const {
    return m_options.bin.empty() || (path.bin != 0 && paths.bins[path.bin - 1] == m_options.bin);
  }

  static auto one_of(const std::vector<bool>& places) {
    return [&places](const CALL_STACKS::FRAME& frame) {
      return frame.place < places.size() && places[frame.place];
    };
  }

  bool is_wanted(const STACK& stack) const {
    const auto has = [&](const std::vector<bool>& places) {
      return std::any_of(stack.begin(), stack.end(), one_of(places));
    };
    return (m_options.focus.empty() || has(m_options.focus)) &&
           (m_options.ignored.empty() || !has(m_options.ignored));
  }

  // False where the stack has none of the functions to begin with.
  bool cut(STACK& stack) const {
    if (m_options.direction == CALL_TREE_OPTIONS::CALLERS) return true;
    if (!m_options.from.empty()) {
      const auto outermost = std::find_if(stack.rbegin(), stack.rend(), one_of(m_options.from));
      if (outermost == stack.rend()) return false;
      stack.erase(outermost.base(), stack.end());
    }
    std::reverse(stack.begin(), stack.end());
    return true;
  }

  void add(const STACK& stack, const PATH_FIGURES& figures) {
    std::uint32_t node = CALL_TREE::root;
    for (const CALL_STACKS::FRAME& frame : stack) node = child(node, merged(frame.place));
    m_nodes[node].own += figures;
  }

  // The place that stands for all that are the same.
  std::uint32_t merged(std::uint32_t place) {
    constexpr std::uint32_t unknown = UINT32_MAX;
    if (place >= m_merged.size()) m_merged.resize(m_places->size(), unknown);
    if (m_merged[place] == unknown) {
      const FRAME_PLACE& one = (*m_places)[place];
      m_merged[place] = one.is_of_lost
                            ? place
                            : m_rows.emplace(row_key_of(one, m_options.by), place).first->second;
    }
    return m_merged[place];
  }

  std::uint32_t child(std::uint32_t parent, std::uint32_t place) {
    constexpr int bits_of_place = 32;
    const auto [found, is_new] = m_index.emplace(std::uint64_t{parent} << bits_of_place | place,
                                                 static_cast<std::uint32_t>(m_nodes.size()));
    if (is_new) m_nodes.push_back({.place = place, .parent = parent, .own = {}, .all = {}});
    return found->second;
  }

  const CALL_TREE_OPTIONS& m_options;
  const PLACES* m_places = nullptr;
  std::vector<NODE> m_nodes;
  std::unordered_map<std::uint64_t, std::uint32_t> m_index;
  std::vector<std::uint32_t> m_merged;
  std::map<ROW_KEY, std::uint32_t> m_rows;
};

}  // namespace

CALL_TREE CALL_TREE::build(std::span<const CALL_STACKS> processes,
                           const CALL_TREE_OPTIONS& options) {
  BUILDER builder(options);
  for (const CALL_STACKS& process : processes) builder.add(process);
  return CALL_TREE(std::move(builder).finished());
}

CALL_TREE::CALL_TREE(std::vector<NODE> nodes)
    : m_nodes(std::move(nodes)), m_children(m_nodes.size() - 1), m_begins(m_nodes.size() + 1) {
  for (std::size_t i = 1; i < m_nodes.size(); ++i) ++m_begins[m_nodes[i].parent + 1];
  for (std::size_t i = 1; i < m_begins.size(); ++i) m_begins[i] += m_begins[i - 1];
  std::vector<std::size_t> next = m_begins;
  for (std::uint32_t i = 1; i < m_nodes.size(); ++i) m_children[next[m_nodes[i].parent]++] = i;
}

std::span<const std::uint32_t> CALL_TREE::children(std::uint32_t node) const {
  return std::span(m_children).subspan(m_begins[node], m_begins[node + 1] - m_begins[node]);
}

void CALL_TREE::sort_by(FIGURE figure) {
  for (std::size_t node = 0; node < m_nodes.size(); ++node)
    std::stable_sort(m_children.begin() + static_cast<std::ptrdiff_t>(m_begins[node]),
                     m_children.begin() + static_cast<std::ptrdiff_t>(m_begins[node + 1]),
                     [&](std::uint32_t a, std::uint32_t b) {
                       return m_nodes[a].all[figure] > m_nodes[b].all[figure];
                     });
}

std::vector<CALL_TREE_PAIR> pair_nodes(const CALL_TREE& before, const CALL_TREE& after,
                                       const PLACES& places) {
  constexpr std::uint32_t none = 0;
  const auto key_of = [&](std::uint32_t place) {
    PLACE named = places[place];
    named.file.remove_prefix(named.file.rfind('/') + 1);
    return row_key_of(named, BY::FUNCTION);
  };
  std::vector<CALL_TREE_PAIR> pairs = {{CALL_TREE::root, CALL_TREE::root, 0}};
  for (std::uint32_t i = 0; i < pairs.size(); ++i) {
    const CALL_TREE_PAIR above = pairs[i];
    std::map<ROW_KEY, std::uint32_t> index;
    const auto add = [&](const CALL_TREE& tree, std::uint32_t CALL_TREE_PAIR::*side) {
      if (above.*side == none && i != 0) return;
      for (const std::uint32_t child : tree.children(above.*side)) {
        const auto found = index.find(key_of(tree.nodes()[child].place));
        const bool is_new = found == index.end() || pairs[found->second].*side != none;
        const auto pair = is_new ? static_cast<std::uint32_t>(pairs.size()) : found->second;
        if (is_new) pairs.push_back({none, none, i});
        if (found == index.end()) index.emplace(key_of(tree.nodes()[child].place), pair);
        pairs[pair].*side = child;
      }
    };
    add(before, &CALL_TREE_PAIR::before);
    add(after, &CALL_TREE_PAIR::after);
  }
  return pairs;
}

}  // namespace reports
