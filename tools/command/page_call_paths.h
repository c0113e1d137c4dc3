// The page's data of call paths. web/model/call_paths.js reads them.
#pragma once

#include <map>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tools/command/page_texts.h"
#include "tools/command/paths/resolver.h"

namespace command {

/// The stacks of several processes, or of two runs, merged into nodes, with the figures of each
/// path.
class PAGE_CALL_PATHS {
 public:
  /// More would make a page that takes long to open. The others are summed for each line.
  static constexpr std::size_t most_paths = 250000;

  /// So many paths are going to be added, of all processes.
  explicit PAGE_CALL_PATHS(std::size_t all_paths) : m_all_paths(all_paths) {}

  /// The page's sites of the process begin at `first_site`.
  void add(const RESOLVER::PROCESS_STACKS& of, std::size_t process, std::int64_t first_site);
  bool is_empty() const { return m_paths.empty(); }
  JSON json(PAGE_TEXTS& texts) const;
  /// Paths that were summed.
  std::size_t summed() const { return m_summed; }

 private:
  // A place is another frame where blocks are charged to it, since that is never folded.
  struct FRAME {
    std::uint32_t place;
    bool is_folded;
    bool operator==(const FRAME&) const = default;
  };
  struct NODE {
    std::uint32_t caller;
    std::uint32_t frame;
    std::vector<std::uint32_t> callees;
  };
  struct PATH {
    std::uint32_t node;
    std::size_t process;
    std::int64_t site;
    std::int64_t bin;
    reports::PATH_FIGURES figures;
  };

  std::uint32_t node_of(const reports::CALL_STACKS& stacks, const reports::CALL_PATHS::PATH& path,
                        bool is_whole);
  std::uint32_t frame_of(std::uint32_t place, bool is_folded);
  std::uint32_t callee_of(std::uint32_t caller, std::uint32_t frame);
  JSON frames_json(PAGE_TEXTS& texts) const;
  JSON paths_json(const std::vector<std::uint32_t>& numbers) const;

  const reports::PLACES* m_places = nullptr;
  std::vector<FRAME> m_frames;
  std::unordered_map<std::uint64_t, std::uint32_t> m_frame_numbers;
  std::vector<NODE> m_nodes = {{}};  // the first has called the outermost frames
  std::unordered_map<std::uint64_t, std::uint32_t> m_node_numbers;
  std::map<std::string_view, std::int64_t> m_bin_numbers;
  std::vector<std::string_view> m_bins;
  std::vector<PATH> m_paths;
  std::size_t m_all_paths;
  std::size_t m_summed = 0;
  reports::CALL_STACKS::STACK m_stack;  // kept for its memory
};

}  // namespace command
