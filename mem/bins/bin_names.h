// Numbers for the names of bins and tags.
#pragma once

#include <oneapi/tbb/concurrent_vector.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <string_view>
#include <unordered_map>

#include "mem/base/bookkeeping.h"
#include "mem/base/check.h"

/// A registry of names and the stack of those that are open. Names get ids from 0 on in the order
/// of their first opening and keep them. Id 0 is "Root", open from the start and never closed.
///
/// Only one thread at a time, the host's main thread, may open and close; any thread may ask for
/// the current id and for names meanwhile. Broken conditions are internal errors.
template <class ID>
class MEM_BIN_NAME_MGR {
 public:
  MEM_BIN_NAME_MGR();
  MEM_BIN_NAME_MGR(const MEM_BIN_NAME_MGR&) = delete;
  MEM_BIN_NAME_MGR& operator=(const MEM_BIN_NAME_MGR&) = delete;

  /// Opens a name, which may be open already: each opening wants a closing of its own.
  void open(std::string_view name);
  /// Closes the name opened last, which must be this one.
  void close(std::string_view name);
  /// Closes the name opened last. Closing "Root" is an error, raised after it was done.
  void pop();

  /// The id of the name opened last. Any thread: one that opens or closes meanwhile may or may not
  /// have done so yet in the answer.
  ID current_id() const {
    const std::int64_t id = m_current_id.load(std::memory_order_relaxed);
    mem_check(id != none, "!m_pb_id_stack.empty()", MEM_SOURCE::profile_bins);
    return static_cast<ID>(id);
  }
  const MEM_BOOKKEEPING_STRING& get_curr_name() const { return id_to_name(current_id()); }

  /// The name stays where it is for the life of the registry. Throws std::out_of_range for an id
  /// not given to a name. Any thread.
  const MEM_BOOKKEEPING_STRING& id_to_name(ID id) const;

 private:
  static constexpr std::int64_t none = -1;
  static_assert(sizeof(ID) < sizeof none, "every id and none must be distinct");

  template <class T>
  using DEQUE = std::deque<T, MEM_BOOKKEEPING_ALLOCATOR<T>>;
  using IDS_ENTRY = std::pair<const std::string_view, ID>;

  ID id_of(std::string_view name);
  void publish_current_id();

  DEQUE<ID> m_pb_id_stack;
  std::unordered_map<std::string_view, ID, std::hash<std::string_view>, std::equal_to<>,
                     MEM_BOOKKEEPING_ALLOCATOR<IDS_ENTRY>>
      m_ids;  // the keys are the texts of m_names, whose elements never move
  // Its blocks never move: other threads read names while it grows.
  tbb::concurrent_vector<MEM_BOOKKEEPING_STRING, MEM_BOOKKEEPING_ALLOCATOR<MEM_BOOKKEEPING_STRING>>
      m_names;
  std::atomic<std::size_t> m_name_count = 0;  // names that are whole
  // The back of the stack, for the threads that allocate; none when it is empty.
  std::atomic<std::int64_t> m_current_id = none;
};

extern template class MEM_BIN_NAME_MGR<std::uint32_t>;
