// The sequence of every timeline: most values repeat the one before.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "mem/base/bookkeeping.h"

/// An append-only sequence that keeps a run of equal values as one value and a count. It is read
/// from the front, one value after the other. T needs == and a copy; its value-initialised value
/// is the zero. Takes no lock: its owner lets one thread append, and none read meanwhile.
template <class T>
class MEM_REPETITIVE_VECTOR {
  struct RUN {
    T value;
    std::uint64_t count;  // at least 1
  };

 public:
  /// Stands at a value until the vector is appended to. It knows no end: its user counts size()
  /// steps. Behind the last value it must not be dereferenced or stepped.
  class REPETITIVE_ITERATOR {
   public:
    const T& operator*() const { return m_run->value; }
    REPETITIVE_ITERATOR& operator++() {
      if (++m_index == m_run->count) {
        ++m_run;
        m_index = 0;
      }
      return *this;
    }

   private:
    friend class MEM_REPETITIVE_VECTOR;
    explicit REPETITIVE_ITERATOR(const RUN* first) : m_run(first) {}

    const RUN* m_run;
    std::uint64_t m_index = 0;  // within the run
  };

  MEM_REPETITIVE_VECTOR() = default;
  /// Starts with `zeros` zeros, for a series that begins late in a timeline.
  explicit MEM_REPETITIVE_VECTOR(std::uint64_t zeros) : m_size(zeros) {
    if (zeros > 0) m_runs.push_back({T(), zeros});
  }

  /// Allocates only for a value that differs from the last; a failure to leaves all as it was.
  void append(const T& value) {
    // A report copies the vector, and takes a last sample, for which it may double.
    if (append_to_copy(value)) mem_add_to_reserve(3 * sizeof(RUN));
  }
  /// The same in a report's copy, for which no memory is kept back. Whether the value differs.
  bool append_to_copy(const T& value) {
    const bool differs = m_runs.empty() || !(m_runs.back().value == value);
    if (differs)
      m_runs.push_back({value, 1});
    else
      ++m_runs.back().count;
    ++m_size;
    return differs;
  }

  /// The number of values.
  std::uint64_t size() const { return m_size; }
  /// The number of runs, to which the memory in use is proportional.
  std::size_t runs() const { return m_runs.size(); }
  REPETITIVE_ITERATOR begin() const { return REPETITIVE_ITERATOR(m_runs.data()); }
  /// The largest value; the zero when there is none.
  T largest() const {
    const auto run = std::max_element(m_runs.begin(), m_runs.end(),
                                      [](const RUN& a, const RUN& b) { return a.value < b.value; });
    return run == m_runs.end() ? T() : run->value;
  }

 private:
  std::vector<RUN, MEM_BOOKKEEPING_ALLOCATOR<RUN>> m_runs;
  std::uint64_t m_size = 0;
};
