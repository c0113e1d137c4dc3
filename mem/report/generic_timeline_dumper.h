// The writer of every timeline of series: a summary and a detailed table of the same samples.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "mem/report/dump_timing.h"
#include "mem/report/report_text.h"
#include "mem/timeline/repetitive_vector.h"

/// One series of a timeline, in the order of the detailed table.
struct MEM_TIMELINE_COLUMN {
  using VALUES = MEM_REPETITIVE_VECTOR<std::int64_t>;

  std::string_view name;
  VALUES::REPETITIVE_ITERATOR value;  // at the sample being written
  std::int64_t max;

  MEM_TIMELINE_COLUMN(std::string_view series, const VALUES& values)
      : name(series), value(values.begin()), max(values.largest()) {}
};

using MEM_TIMELINE_COLUMNS =
    std::vector<MEM_TIMELINE_COLUMN, MEM_BOOKKEEPING_ALLOCATOR<MEM_TIMELINE_COLUMN>>;

/// The columns of the summary: the 18 series with the largest maxima, smallest of them first,
/// equal ones in the order of the detailed table; all others are summed up as "Misc".
class MEM_TIMELINE_SUMMARY {
 public:
  static constexpr std::size_t most_shown = 18;

  explicit MEM_TIMELINE_SUMMARY(MEM_TIMELINE_COLUMNS columns);

  void write_header(MEM_REPORT_TEXT& out) const;
  /// Writes the values of the next sample.
  void write_next(MEM_REPORT_TEXT& out);

 private:
  MEM_TIMELINE_COLUMNS m_columns;  // by maximum
  std::size_t m_hidden;            // that many in front
};

/// Writes `sample_count` rows of `columns`, each headed by its label, an empty one as "Other".
template <class LABEL_ITERATOR>
void generic_timeline_dumper(MEM_TEXT_SINK& summary_sink, MEM_TEXT_SINK& detailed_sink,
                             std::uint64_t sample_count, MEM_TIMELINE_COLUMNS columns,
                             LABEL_ITERATOR label) {
  const MEM_DUMP_TIMING timing;
  MEM_REPORT_TEXT summary_out(summary_sink);
  MEM_REPORT_TEXT detailed_out(detailed_sink);
  summary_out << "MEM: TBB Module Tracking Memory Timeline.\n\n";
  detailed_out << "MEM: TBB Module Tracking Detailed Memory Timeline.\n\n";

  MEM_TIMELINE_SUMMARY summary(columns);
  summary.write_header(summary_out);
  for (const MEM_TIMELINE_COLUMN& column : columns) detailed_out << '\t' << column.name;
  detailed_out << '\n';

  for (std::uint64_t sample = 0; sample < sample_count; ++sample, ++label) {
    const std::string_view text = *label;
    for (MEM_REPORT_TEXT* out : {&summary_out, &detailed_out})
      *out << (text.empty() ? std::string_view("Other") : text);
    summary.write_next(summary_out);
    for (MEM_TIMELINE_COLUMN& column : columns) {
      detailed_out << '\t' << *column.value;
      ++column.value;
    }
    detailed_out << '\n';
  }
  for (MEM_REPORT_TEXT* out : {&summary_out, &detailed_out}) {
    timing.write(*out);
    *out << '\n';
    out->flush();
  }
}
