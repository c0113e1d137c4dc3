// The stacks of call paths as people read them: inlined functions are frames of their own, and what
// says nothing about who asked for memory may be folded away.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/reports/call_paths.h"

namespace reports {

/// A function at one of its lines, as one frame of a stack shows it.
struct FRAME_PLACE : PLACE {
  bool is_folded = false;   ///< says nothing about who asked for memory
  bool is_of_lost = false;  ///< its name stands for frames that were not kept
};

/// Each place once, by number, for all processes and runs that are looked at together. The texts
/// stay with whoever gives them.
class PLACES {
 public:
  std::uint32_t number(const FRAME_PLACE& place);
  const FRAME_PLACE& operator[](std::uint32_t number) const { return m_places[number]; }
  std::size_t size() const { return m_places.size(); }

 private:
  struct HASH {
    std::size_t operator()(const PLACE& place) const;
  };
  std::unordered_map<PLACE, std::uint32_t, HASH> m_numbers;
  std::vector<FRAME_PLACE> m_places;
};

/// What the frames of one process stand for: the places at each, innermost first, one at least.
class RESOLVED_FRAMES {
 public:
  /// Of the next frame, by its number.
  void add(std::span<const std::uint32_t> places) {
    m_places.insert(m_places.end(), places.begin(), places.end());
    m_ends.push_back(m_places.size());
  }
  std::span<const std::uint32_t> of(std::uint32_t frame) const {
    const std::size_t begin = frame == 1 ? 0 : m_ends[frame - 2];
    return std::span(m_places).subspan(begin, m_ends[frame - 1] - begin);
  }

 private:
  std::vector<std::uint32_t> m_places;
  std::vector<std::size_t> m_ends;
};

enum class FRAMES {
  FOLDED,  ///< those that the profiler itself looks through are left out
  ALL,
};

/// The stacks of one process.
class CALL_STACKS {
 public:
  /// One function of a stack.
  struct FRAME {
    std::uint32_t place;
    std::uint32_t caller;  ///< of the report, whose frame it is a part of; 0 for none
  };
  using STACK = std::vector<FRAME>;

  /// All parameters outlive this.
  CALL_STACKS(const CALL_PATHS& paths, const RESOLVED_FRAMES& frames, PLACES& places);

  const CALL_PATHS& paths() const { return *m_paths; }
  const PLACES& places() const { return *m_places; }

  /// The stack of a path, innermost frame first. That is the line to which the blocks are charged,
  /// as the report per line names it, never one that it was reached through.
  /// Where frames further out were not kept, "(beyond the depth)" is the outermost.
  void get(const CALL_PATHS::PATH& path, FRAMES which, STACK& stack) const;
  /// Paths of which that is so.
  std::size_t cut_paths() const;

 private:
  void find_cut_stacks();
  bool is_cut(const CALL_PATHS::PATH& path) const {
    return path.caller < m_is_cut.size() && m_is_cut[path.caller];
  }
  std::size_t behind_site(const PLACE& site, std::uint32_t frame) const;
  void add(std::uint32_t frame, std::size_t first, FRAMES which, STACK& stack) const;

  const CALL_PATHS* m_paths;
  const RESOLVED_FRAMES* m_frames;
  const PLACES* m_places;
  std::vector<std::uint32_t> m_places_of_sites;
  std::uint32_t m_beyond_limit;
  std::uint32_t m_beyond_depth;
  std::vector<bool> m_is_cut;  // by number of caller; empty where no depth is known
};

}  // namespace reports
