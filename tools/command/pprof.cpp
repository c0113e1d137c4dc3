#include "tools/command/pprof.h"

#include <google/protobuf/io/gzip_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl.h>

#include <cmath>
#include <ctime>
#include <map>
#include <ostream>
#include <tuple>
#include <unordered_map>

#include "profile.pb.h"
#include "tools/command/text.h"
#include "tools/reports/line_reader.h"

namespace command {

namespace {

using reports::FIGURE, reports::PROCESS, reports::SITE;

struct VALUE {
  FIGURE figure;
  char const* type;
  char const* unit;
};

constexpr VALUE values[] = {
    {reports::PEAK_BYTES, "peak_bytes", "bytes"},
    {reports::PEAK_BLOCKS, "peak_blocks", "count"},
    {reports::CURRENT_BYTES, "current_bytes", "bytes"},
    {reports::CURRENT_BLOCKS, "current_blocks", "count"},
    {reports::CUMULATIVE_BYTES, "cumulative_bytes", "bytes"},
    {reports::CUMULATIVE_BLOCKS, "cumulative_blocks", "count"},
};

// "2026-11-25T19:44:53Z" in nanoseconds of the epoch; 0 for anything else.
std::int64_t nanoseconds_at(const std::string& utc) {
  std::tm time{};
  char const* const end = strptime(utc.c_str(), "%Y-%m-%dT%H:%M:%SZ", &time);
  if (end == nullptr || *end != '\0') return 0;
  constexpr std::int64_t per_second = 1000000000;
  return timegm(&time) * per_second;
}

std::int64_t nanoseconds_of(const std::string& seconds) {
  // By the C locale's rules: this program sets no other.
  const double value = std::strtod(seconds.c_str(), nullptr) * 1e9;
  return value >= 0 && value < 9e18 ? static_cast<std::int64_t>(value) : 0;
}

class PROFILE {
 public:
  PROFILE() {
    text("");
    for (const VALUE& value : values) {
      auto* const type = m_profile.add_sample_type();
      type->set_type(text(value.type));
      type->set_unit(text(value.unit));
    }
  }

  void add(const PROCESS& process) {
    const auto* const sites = process.any_sites();
    if (sites == nullptr) return;
    m_has_sites = true;
    add_facts(process);
    m_mappings.clear();
    for (const SITE& site : sites->rows) {
      add_sample(process, site);
      m_total += site.figures;
    }
  }

  bool has_sites() const { return m_has_sites; }

  void write(std::ostream& out) {
    const FIGURE shown_first = reports::highest_of(m_total);
    for (const VALUE& value : values)
      if (value.figure == shown_first) m_profile.set_default_sample_type(text(value.type));
    google::protobuf::io::OstreamOutputStream plain(&out);
    google::protobuf::io::GzipOutputStream::Options options;
    options.format = google::protobuf::io::GzipOutputStream::GZIP;
    google::protobuf::io::GzipOutputStream zipped(&plain, options);
    if (!m_profile.SerializeToZeroCopyStream(&zipped) || !zipped.Close())
      throw std::runtime_error("the profile can't be written");
  }

 private:
  std::int64_t text(std::string_view text) {
    const std::string valid = valid_utf8(text);
    const auto [found, is_new] = m_texts.emplace(valid, m_profile.string_table_size());
    if (is_new) m_profile.add_string_table(valid);
    return found->second;
  }

  // Of the first process that tells.
  void add_facts(const PROCESS& process) {
    if (!process.facts || m_profile.time_nanos() != 0) return;
    m_profile.set_time_nanos(nanoseconds_at(process.facts->value("start")));
    m_profile.set_duration_nanos(nanoseconds_of(process.facts->value("seconds")));
    std::string line;
    for (const std::string& argument : process.facts->arguments)
      line.append(line.empty() ? "" : " ").append(argument);
    m_profile.add_comment(text(line));
  }

  // The module as the run file tells of it; where there is none, its name stands alone.
  std::uint64_t mapping(const PROCESS& process, std::string_view module) {
    const auto [found, is_new] = m_mappings.emplace(module, 0);
    if (!is_new) return found->second;
    auto* const mapping = m_profile.add_mapping();
    found->second = static_cast<std::uint64_t>(m_profile.mapping_size());
    mapping->set_id(found->second);
    // Nobody has to look for more than is told.
    mapping->set_has_functions(true);
    mapping->set_has_filenames(true);
    mapping->set_has_line_numbers(true);
    mapping->set_has_inline_frames(true);
    const auto* const base = process.base_of_module(module);
    mapping->set_filename(text(base == nullptr ? module : base->path));
    if (!process.facts || base == nullptr) return found->second;
    for (const auto& loaded : process.facts->modules) {
      // The loader may have come to the file through a link.
      if (base->address == 0 ? loaded.path != base->path : loaded.address != base->address)
        continue;
      mapping->set_memory_start(loaded.address);
      mapping->set_memory_limit(loaded.address + loaded.size);
      mapping->set_build_id(text(loaded.build_id));
    }
    return found->second;
  }

  std::uint64_t function(const SITE& site, std::string_view name) {
    const auto key = std::make_pair(text(name), text(site.file));
    const auto [found, is_new] = m_functions.emplace(key, 0);
    if (!is_new) return found->second;
    auto* const function = m_profile.add_function();
    found->second = static_cast<std::uint64_t>(m_profile.function_size());
    function->set_id(found->second);
    function->set_name(key.first);
    function->set_system_name(key.first);
    function->set_filename(key.second);
    return found->second;
  }

  void add_sample(const PROCESS& process, const SITE& site) {
    auto* const location = m_profile.add_location();
    location->set_id(static_cast<std::uint64_t>(m_profile.location_size()));
    location->set_address(site.address);
    if (!site.module.empty()) location->set_mapping_id(mapping(process, site.module));
    auto* const line = location->add_line();
    const std::string_view name = site.is_catch_all ? "OTHER" : site.function;
    line->set_function_id(function(site, name.empty() ? "??" : name));
    line->set_line(site.line);

    auto* const sample = m_profile.add_sample();
    sample->add_location_id(location->id());
    for (const VALUE& value : values) sample->add_value(site.figures[value.figure]);
    auto* const label = sample->add_label();
    label->set_key(text("process"));
    label->set_str(text(process.name));
  }

  tuk_mem_profile::Profile m_profile;
  std::unordered_map<std::string, std::int64_t> m_texts;
  std::map<std::string_view, std::uint64_t> m_mappings;  // of one process, by module
  std::map<std::pair<std::int64_t, std::int64_t>, std::uint64_t> m_functions;
  reports::FIGURES m_total;
  bool m_has_sites = false;
};

}  // namespace

void write_pprof(std::ostream& out, const reports::RUN& run) {
  PROFILE profile;
  for (const PROCESS& process : run.processes) profile.add(process);
  if (!profile.has_sites())
    throw reports::UNREADABLE(run.path +
                              ": there is no report per line, which a profile is made of");
  profile.write(out);
}

}  // namespace command
