#include "tools/command/page_call_paths.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <tuple>

namespace command {

namespace {

using namespace reports;

std::uint64_t key_of(std::uint32_t high, std::uint32_t low) {
  return std::uint64_t{high} << 32U | low;
}

JSON columns() {
  JSON json = JSON::array();
  for (const FIGURE figure : PATH_FIGURES::order) json.push_back(json_of(figure_columns[figure]));
  return json;
}

// Stands above the lines of the paths that are summed.
constexpr std::uint32_t place_of_summed = std::numeric_limits<std::uint32_t>::max();
constexpr std::string_view name_of_summed = "(smaller call paths)";

// By path, whether it is one of the `most` with the largest share of any figure.
std::vector<bool> largest(const std::vector<CALL_PATHS::PATH>& paths, std::size_t most) {
  std::vector<bool> is_large(paths.size(), true);
  if (paths.size() <= most) return is_large;
  PATH_FIGURES sum;
  for (const CALL_PATHS::PATH& path : paths) sum += path.figures;
  std::vector<std::pair<double, std::size_t>> shares;
  for (const CALL_PATHS::PATH& path : paths) {
    double share = 0;
    for (const FIGURE figure : PATH_FIGURES::order)
      share = std::fmax(share, std::fabs(static_cast<double>(path.figures[figure]) /
                                         std::fmax(1, static_cast<double>(sum[figure]))));
    shares.emplace_back(share, shares.size());
  }
  const auto first_small = shares.begin() + static_cast<std::ptrdiff_t>(most);
  std::nth_element(shares.begin(), first_small, shares.end(), std::greater<>());
  for (auto small = first_small; small != shares.end(); ++small) is_large[small->second] = false;
  return is_large;
}

// By number of the report of call paths, the page's site; -1 for one that is not on the page.
std::vector<std::int64_t> page_sites(const PROCESS& process, std::int64_t first) {
  std::unordered_map<std::uint64_t, std::int64_t> numbers;
  std::int64_t catch_all = -1;
  if (process.sites)
    for (const SITE& site : process.sites->rows) {
      if (site.is_catch_all)
        catch_all = first;
      else
        numbers.emplace(site.address, first);
      ++first;
    }
  std::vector<std::int64_t> result;
  for (const SITE& site : process.call_paths->sites) {
    const auto found = numbers.find(site.address);
    const std::int64_t number = found == numbers.end() ? -1 : found->second;
    result.push_back(site.is_catch_all ? catch_all : number);
  }
  return result;
}

}  // namespace

void PAGE_CALL_PATHS::add(const RESOLVER::PROCESS_STACKS& of, std::size_t process,
                          std::int64_t first_site) {
  const CALL_STACKS& stacks = of.stacks;
  const std::vector<std::int64_t> sites = page_sites(*of.process, first_site);
  m_places = &stacks.places();
  std::vector<std::int64_t> bins = {-1};
  for (const std::string& name : stacks.paths().bins) {
    const auto [bin, is_new] =
        m_bin_numbers.emplace(name, static_cast<std::int64_t>(m_bins.size()));
    if (is_new) m_bins.push_back(name);
    bins.push_back(bin->second);
  }
  const auto& paths = stacks.paths().paths;
  // Each process, or run, its share: one of which all are summed could not be compared.
  const std::size_t most = paths.size() * most_paths / std::max(most_paths, m_all_paths);
  const std::vector<bool> is_whole = largest(paths, most);
  std::map<std::tuple<std::uint32_t, std::int64_t, std::int64_t>, PATH_FIGURES> summed;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    const PATH path{.node = node_of(stacks, paths[i], is_whole[i]),
                    .process = process,
                    .site = sites[paths[i].site - 1],
                    .bin = bins[paths[i].bin],
                    .figures = paths[i].figures};
    if (is_whole[i]) {
      m_paths.push_back(path);
    } else {
      summed[{path.node, path.site, path.bin}] += path.figures;
      ++m_summed;
    }
  }
  for (const auto& [key, figures] : summed) {
    const auto& [node, site, bin] = key;
    m_paths.push_back({node, process, site, bin, figures});
  }
}

std::uint32_t PAGE_CALL_PATHS::node_of(const CALL_STACKS& stacks, const CALL_PATHS::PATH& path,
                                       bool is_whole) {
  stacks.get(path, FRAMES::ALL, m_stack);
  if (!is_whole) m_stack.resize(1);
  std::uint32_t node = is_whole ? 0 : callee_of(0, frame_of(place_of_summed, false));
  for (auto frame = m_stack.end(); frame-- != m_stack.begin();) {
    const bool is_charged = frame == m_stack.begin();
    const bool is_folded = !is_charged && stacks.places()[frame->place].is_folded;
    node = callee_of(node, frame_of(frame->place, is_folded));
  }
  return node;
}

std::uint32_t PAGE_CALL_PATHS::frame_of(std::uint32_t place, bool is_folded) {
  const auto [found, is_new] = m_frame_numbers.emplace(key_of(place, is_folded ? 1 : 0),
                                                       static_cast<std::uint32_t>(m_frames.size()));
  if (is_new) m_frames.push_back({place, is_folded});
  return found->second;
}

std::uint32_t PAGE_CALL_PATHS::callee_of(std::uint32_t caller, std::uint32_t frame) {
  const auto number = static_cast<std::uint32_t>(m_nodes.size());
  const auto [found, is_new] = m_node_numbers.emplace(key_of(caller, frame), number);
  if (is_new) {
    m_nodes.push_back({caller, frame, {}});
    m_nodes[caller].callees.push_back(number);
  }
  return found->second;
}

JSON PAGE_CALL_PATHS::json(PAGE_TEXTS& texts) const {
  JSON json;
  json["columns"] = columns();
  json["bins"] = JSON::array();
  for (const std::string_view name : m_bins) json["bins"].push_back(texts.number(name));
  json["frames"] = frames_json(texts);
  // Callees follow their caller, so that a small number, its depth, is all that tells it.
  JSON depths = JSON::array();
  JSON frames = JSON::array();
  std::vector<std::uint32_t> numbers(m_nodes.size());
  std::vector<std::pair<std::uint32_t, std::uint32_t>> left;  // nodes and their depths
  const auto go_on = [&](std::uint32_t node, std::uint32_t depth) {
    for (const std::uint32_t callee : m_nodes[node].callees) left.emplace_back(callee, depth);
  };
  go_on(0, 0);
  while (!left.empty()) {
    const auto [node, depth] = left.back();
    left.pop_back();
    numbers[node] = static_cast<std::uint32_t>(depths.size());
    depths.push_back(depth);
    frames.push_back(m_nodes[node].frame);
    go_on(node, depth + 1);
  }
  json["depth"] = std::move(depths);
  json["frame"] = std::move(frames);
  json["paths"] = paths_json(numbers);
  return json;
}

JSON PAGE_CALL_PATHS::frames_json(PAGE_TEXTS& texts) const {
  JSON json;
  for (char const* const key : {"function", "file", "line", "module", "folded"})
    json[key] = JSON::array();
  for (const FRAME& frame : m_frames) {
    FRAME_PLACE place;
    if (frame.place == place_of_summed)
      place.function = name_of_summed;
    else
      place = (*m_places)[frame.place];
    json["function"].push_back(texts.number(place.is_catch_all ? other_name : place.function));
    json["file"].push_back(
        texts.number(is_known_file(place.file) ? place.file : std::string_view()));
    json["line"].push_back(place.line);
    json["module"].push_back(texts.number(place.module));
    json["folded"].push_back(frame.is_folded ? 1 : 0);
  }
  return json;
}

JSON PAGE_CALL_PATHS::paths_json(const std::vector<std::uint32_t>& numbers) const {
  JSON json;
  for (char const* const key : {"node", "process", "site", "bin"}) json[key] = JSON::array();
  for (const PATH& path : m_paths) {
    json["node"].push_back(numbers[path.node]);
    json["process"].push_back(path.process);
    json["site"].push_back(path.site);
    json["bin"].push_back(path.bin);
  }
  JSON& figures = json["figures"] = JSON::object();
  for (const FIGURE figure : PATH_FIGURES::order) {
    JSON& values = figures[std::string(figure_columns[figure].key)] = JSON::array();
    for (const PATH& path : m_paths) values.push_back(path.figures[figure]);
  }
  return json;
}

}  // namespace command
