// The table of call paths: what leads to a site, and the figures of each way.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "mem/base/bookkeeping.h"
#include "mem/base/part.h"
#include "mem/paths/path_frames.h"
#include "mem/records/call_path.h"

class MEM_WHOLE_STACK;

/// A stack from its outermost frame to one frame. Numbered behind its caller.
struct MEM_PATH_NODE {
  std::uint32_t caller;  ///< number; 0 for none
  std::uint32_t frame;   ///< number
  std::atomic<bool> is_removed;
};

/// A path that is looked for: a stretch of a stack, by which a site was reached.
struct MEM_PATH_KEY {
  MEM_WHOLE_STACK& stack;
  int outermost;
  int innermost;
  MEM_ADDRESS_TRACKER& site;
  std::uint32_t bin;  ///< with MEM_CALL_PATH::is_of_catch_all

  std::uint64_t digest() const;
};

/// Any thread looks for paths without a lock, as a mouse; who does not find one adds it, one thread
/// at a time. Paths stay, with all that they lead to: those of modules that are gone too, which are
/// not found any more. The stacks' notes are numbers of nodes.
class MEM_CALL_PATHS {
 public:
  MEM_CALL_PATHS() = default;
  MEM_CALL_PATHS(const MEM_CALL_PATHS&) = delete;
  MEM_CALL_PATHS& operator=(const MEM_CALL_PATHS&) = delete;
  ~MEM_CALL_PATHS();

  /// Null where there are too many, or for want of memory.
  MEM_CALL_PATH* find_or_add(const MEM_PATH_KEY& key);

  /// Hold the lock.
  void remove_module(std::uintptr_t begin, std::uintptr_t end);

  MEM_NUMBERED<MEM_CALL_PATH>& paths() { return m_paths; }
  MEM_NUMBERED<MEM_PATH_NODE>& nodes() { return m_nodes; }
  MEM_PATH_FRAMES& frames() { return m_frames; }

 private:
  struct TABLE;

  MEM_CALL_PATH* find(const MEM_PATH_KEY& key, std::uint64_t digest);
  bool is(const MEM_CALL_PATH& path, const MEM_PATH_KEY& key);
  void note_nodes(std::uint32_t node, const MEM_PATH_KEY& key);
  MEM_CALL_PATH* add(const MEM_PATH_KEY& key, std::uint64_t digest);
  MEM_CALL_PATH* add_or_name_module(const MEM_PATH_KEY& key, std::uint64_t digest,
                                    std::uintptr_t& unknown);
  std::uint32_t add_nodes(const MEM_PATH_KEY& key, std::uintptr_t& unknown);
  std::uint32_t add_node(std::uint32_t caller, std::uint32_t frame);
  void make_room();

  MEM_NUMBERED<MEM_CALL_PATH> m_paths;
  MEM_NUMBERED<MEM_PATH_NODE> m_nodes;
  MEM_PATH_FRAMES m_frames;
  MEM_NUMBER_INDEX m_node_index;
  std::atomic<TABLE*> m_table{nullptr};
  std::atomic<bool> m_is_full{false};
};

/// From the first path on, to cleanup; null before.
extern std::atomic<MEM_CALL_PATHS*> mem_call_paths;
extern const MEM_PART mem_call_paths_part;

/// Another one whenever paths that were found are not to be taken for the same any more.
extern std::atomic<std::uint32_t> mem_call_paths_epoch;

/// Allocations that have no path since there were too many, or for want of memory.
extern std::atomic<std::uint64_t> mem_blocks_beyond_call_paths;

/// The path of an allocation; null for one beyond the limit, which is counted. As a mouse.
MEM_CALL_PATH* mem_call_path_of(const MEM_PATH_KEY& key);

/// A module is gone from [begin, end): one that is loaded later has other paths. As a mouse.
void mem_remove_call_paths(std::uintptr_t begin, std::uintptr_t end);

// The recorded peak, as that of the sites: by the cat, but for the second, as a mouse.
void mem_keep_current_call_paths_as_peak();
void mem_flush_call_path_peaks();
void mem_restore_call_path_peaks();

/// The figures of all paths in one moment.
struct MEM_CALL_PATH_FIGURES {
  struct ROW {
    MEM_ADDRESS_TRACKER const* site;
    std::uint32_t node;
    std::uint32_t bin;  ///< without is_of_catch_all
    std::int64_t current_bytes, peak_bytes;
    std::uint64_t cumulative_bytes;
    std::int32_t current_blocks, peak_blocks;
    std::uint64_t cumulative_blocks, temporary_blocks;
  };
  std::vector<ROW, MEM_BOOKKEEPING_ALLOCATOR<ROW>> rows;  ///< by number, those of no site too
  std::uint64_t beyond_limit = 0;
  std::uint32_t modules = 0, frames = 0, nodes = 0;  ///< so many there were

  /// As the cat at rest. Nothing where there are no paths. May throw std::bad_alloc.
  static MEM_CALL_PATH_FIGURES now();
  /// With the peak of the last flush.
  void show_flushed_peak();
};
