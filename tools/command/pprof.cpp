#include "tools/command/pprof.h"

#include <google/protobuf/io/gzip_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <map>
#include <ostream>
#include <span>
#include <tuple>
#include <unordered_map>

#include "profile.pb.h"
#include "tools/command/paths/resolver.h"
#include "tools/command/text.h"
#include "tools/reports/line_reader.h"
#include "tools/reports/row_groups.h"

namespace command {

namespace {

using reports::CALL_STACKS, reports::FIGURE, reports::PROCESS, reports::SITE;

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
    {reports::TEMPORARY_BLOCKS, "temporary_blocks", "count"},
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
  // Those that paths alone have are 0 for all others.
  explicit PROFILE(bool has_paths)
      : m_values(std::begin(values), std::end(values) - (has_paths ? 0 : 1)) {
    text("");
    for (const VALUE& value : m_values) {
      auto* const type = m_profile.add_sample_type();
      type->set_type(text(value.type));
      type->set_unit(text(value.unit));
    }
  }

  void add(const PROCESS& process) {
    const auto* const sites = process.any_sites();
    if (sites == nullptr) return;
    begin(process);
    for (const SITE& site : sites->rows)
      add_sample(process, site.figures, {add_location(process, site)});
  }

  void add(const PROCESS& process, const CALL_STACKS& stacks, reports::FRAMES frames) {
    begin(process);
    const std::vector<std::uint64_t> mappings = add_mappings(process, stacks.paths().modules);
    LOCATIONS known;
    CALL_STACKS::STACK stack;
    for (const auto& path : stacks.paths().paths) {
      stacks.get(path, frames, stack);
      std::vector<std::uint64_t> locations;
      for (auto first = stack.begin(); first != stack.end();) {
        // The functions that are inlined at one address are one location.
        const auto end = std::find_if(first, stack.end(), [&](const auto& frame) {
          return frame.caller == 0 || frame.caller != first->caller;
        });
        const auto last = end == first ? end + 1 : end;
        locations.push_back(location_of(stacks, {first, last}, mappings, known));
        first = last;
      }
      add_sample(process, path.figures.figures(), locations);
      if (path.bin != 0) add_label("bin", stacks.paths().bins[path.bin - 1]);
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

  using PLACE_NUMBERS = std::vector<std::uint32_t>;
  // By the report's frame and what is shown of the functions there.
  using LOCATIONS = std::map<std::pair<std::uint32_t, PLACE_NUMBERS>, std::uint64_t>;

  void begin(const PROCESS& process) {
    m_has_sites = true;
    add_facts(process);
    m_mappings.clear();
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

  tuk_mem_profile::Mapping& new_mapping(std::string_view path) {
    auto* const mapping = m_profile.add_mapping();
    mapping->set_id(static_cast<std::uint64_t>(m_profile.mapping_size()));
    // Nobody has to look for more than is told.
    mapping->set_has_functions(true);
    mapping->set_has_filenames(true);
    mapping->set_has_line_numbers(true);
    mapping->set_has_inline_frames(true);
    mapping->set_filename(text(path));
    return *mapping;
  }

  static void place(tuk_mem_profile::Mapping& mapping, std::uint64_t address, std::uint64_t size,
                    std::int64_t build_id) {
    mapping.set_memory_start(address);
    mapping.set_memory_limit(address + size);
    mapping.set_build_id(build_id);
  }

  // The module as the run file tells of it; where there is none, its name stands alone.
  std::uint64_t mapping(const PROCESS& process, std::string_view module) {
    const auto [found, is_new] = m_mappings.emplace(module, 0);
    if (!is_new) return found->second;
    const auto* const base = process.base_of_module(module);
    auto& mapping = new_mapping(base == nullptr ? module : base->path);
    found->second = mapping.id();
    if (!process.facts || base == nullptr) return found->second;
    for (const auto& loaded : process.facts->modules) {
      // The loader may have come to the file through a link.
      if (base->address == 0 ? loaded.path != base->path : loaded.address != base->address)
        continue;
      place(mapping, loaded.address, loaded.size, text(loaded.build_id));
    }
    return found->second;
  }

  // By number of module. The first mapping of a profile is taken for the program.
  std::vector<std::uint64_t> add_mappings(const PROCESS& process,
                                          const std::vector<reports::CALL_PATHS::MODULE>& modules) {
    const std::string program = process.facts ? process.facts->value("executable") : "";
    std::vector<std::uint64_t> ids(modules.size());
    for (const bool is_program : {true, false})
      for (std::size_t i = 0; i < modules.size(); ++i) {
        const auto& module = modules[i];
        if ((module.path == program) != is_program) continue;
        auto& mapping = new_mapping(module.path);
        place(mapping, module.base, module.size, text(module.build_id));
        ids[i] = mapping.id();
      }
    return ids;
  }

  std::uint64_t function(const reports::PLACE& place) {
    const std::string_view name = place.is_catch_all       ? reports::other_name
                                  : place.function.empty() ? "??"
                                                           : place.function;
    const auto key = std::make_pair(text(name), text(place.file));
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

  tuk_mem_profile::Location& new_location() {
    auto* const location = m_profile.add_location();
    location->set_id(static_cast<std::uint64_t>(m_profile.location_size()));
    return *location;
  }

  void add_line(tuk_mem_profile::Location& location, const reports::PLACE& place) {
    auto* const line = location.add_line();
    line->set_function_id(function(place));
    line->set_line(place.line);
  }

  std::uint64_t add_location(const PROCESS& process, const SITE& site) {
    auto& location = new_location();
    location.set_address(site.address);
    if (!site.module.empty()) location.set_mapping_id(mapping(process, site.module));
    add_line(location, site);
    return location.id();
  }

  std::uint64_t location_of(const CALL_STACKS& stacks, std::span<const CALL_STACKS::FRAME> frames,
                            const std::vector<std::uint64_t>& mappings, LOCATIONS& known) {
    const auto& paths = stacks.paths();
    const std::uint32_t caller = frames.front().caller;
    const std::uint32_t number = caller == 0 ? 0 : paths.caller(caller).frame;
    PLACE_NUMBERS places;
    for (const auto& frame : frames) places.push_back(frame.place);
    const auto [found, is_new] = known.emplace(std::make_pair(number, places), 0);
    if (!is_new) return found->second;
    auto& location = new_location();
    found->second = location.id();
    if (number != 0) {
      const auto& frame = paths.frame(number);
      location.set_address(frame.offset +
                           (frame.module == 0 ? 0 : paths.module(frame.module).base));
      if (frame.module != 0) location.set_mapping_id(mappings[frame.module - 1]);
    }
    for (const std::uint32_t one : places) add_line(location, stacks.places()[one]);
    return found->second;
  }

  void add_sample(const PROCESS& process, const reports::FIGURES& figures,
                  const std::vector<std::uint64_t>& locations) {
    auto* const sample = m_profile.add_sample();
    for (const std::uint64_t location : locations) sample->add_location_id(location);
    for (const VALUE& value : m_values) sample->add_value(figures[value.figure]);
    m_total += figures;
    add_label("process", process.name);
  }

  // To the last sample.
  void add_label(std::string_view key, std::string_view value) {
    auto* const label = m_profile.mutable_sample(m_profile.sample_size() - 1)->add_label();
    label->set_key(text(key));
    label->set_str(text(value));
  }

  std::span<const VALUE> m_values;
  tuk_mem_profile::Profile m_profile;
  std::unordered_map<std::string, std::int64_t> m_texts;
  std::map<std::string_view, std::uint64_t> m_mappings;  // of one process, by module
  std::map<std::pair<std::int64_t, std::int64_t>, std::uint64_t> m_functions;
  reports::FIGURES m_total;
  bool m_has_sites = false;
};

}  // namespace

void write_pprof(std::ostream& out, const reports::RUN& run, RESOLVER& resolver,
                 reports::FRAMES frames) {
  const auto with_paths = resolver.resolve(run);
  PROFILE profile(!with_paths.empty());
  for (const auto& [process, stacks] : with_paths) profile.add(*process, stacks, frames);
  for (const PROCESS& process : run.processes)
    if (!process.call_paths) profile.add(process);
  if (!profile.has_sites())
    throw reports::UNREADABLE(run.path +
                              ": there is no report per line, which a profile is made of");
  profile.write(out);
}

}  // namespace command
