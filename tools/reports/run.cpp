#include "tools/reports/run.h"

#include <algorithm>

namespace reports {

std::vector<std::int64_t> TIMELINE::totals() const {
  std::vector<std::int64_t> sums(samples);
  for (const SERIES& one : series)
    std::transform(sums.begin(), sums.end(), one.values.begin(), sums.begin(), wrapping_sum);
  return sums;
}

std::string RUN_FACTS::value(std::string_view key) const {
  const auto found = values.find(key);
  return found == values.end() ? "" : found->second;
}

const TABLE<SITE>* PROCESS::any_sites() const {
  if (sites) return &*sites;
  return leaks ? &*leaks : nullptr;
}

std::int64_t PROCESS::highest_bytes() const {
  std::int64_t highest = 0;
  if (const TABLE<SITE>* const table = any_sites()) {
    FIGURES sum;
    for (const SITE& site : table->rows) sum += site.figures;
    highest = std::max({highest, sum[PEAK_BYTES], sum[CURRENT_BYTES]});
  }
  for (const auto* timeline : {&module_bytes, &tag_bytes})
    if (*timeline)
      for (const std::int64_t total : (*timeline)->totals()) highest = std::max(highest, total);
  for (const LEAK_SUMMARY& summary : leak_summaries)
    highest = std::max(highest, summary.peak_bytes);
  return highest;
}

const BASE_ADDRESS* PROCESS::base_of_module(std::string_view module) const {
  for (const BASE_ADDRESS& base : base_addresses)
    if (base.module == module) return &base;
  return nullptr;
}

std::string_view PROCESS::path_of_module(std::string_view module) const {
  const BASE_ADDRESS* const base = base_of_module(module);
  return base == nullptr ? std::string_view() : base->path;
}

}  // namespace reports
