#include "tools/command/show_tree.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "tools/command/options.h"
#include "tools/command/output.h"
#include "tools/command/paths/resolver.h"
#include "tools/command/pattern.h"
#include "tools/command/run_json.h"
#include "tools/command/text.h"
#include "tools/command/text_table.h"

namespace command {

namespace {

using reports::BY, reports::CALL_STACKS, reports::CALL_TREE, reports::CALL_TREE_OPTIONS,
    reports::FIGURE, reports::FRAME_PLACE, reports::PATH_FIGURES, reports::PLACES;

constexpr double percent_limit_of_text = 1;

template <class CONDITION>
std::vector<bool> places_that(const PLACES& places, CONDITION&& holds) {
  std::vector<bool> result(places.size());
  for (std::uint32_t i = 0; i < places.size(); ++i) result[i] = holds(places[i]);
  return result;
}

std::vector<bool> places_found(const PLACES& places, const PATTERN& pattern) {
  if (pattern.is_empty()) return {};
  return places_that(places, [&](const FRAME_PLACE& place) {
    return pattern.is_found_in_place(place.module, place.function, place.file, place.line);
  });
}

// "main" is also "main(int, char**)".
std::vector<bool> functions_called(const PLACES& places, const PATTERN& name) {
  if (name.is_empty()) return {};
  return places_that(places, [&](const FRAME_PLACE& place) {
    return name.is_all_of(place.function) ||
           name.is_all_of(place.function.substr(0, place.function.find('(')));
  });
}

// Where the call paths of a program without a "main" to be seen do begin.
std::string outermost_functions(const std::vector<CALL_STACKS>& stacks, const PLACES& places,
                                const TREE_REQUEST& request) {
  constexpr std::size_t most = 3;
  CALL_TREE_OPTIONS options;
  options.direction = CALL_TREE_OPTIONS::CALLEES;
  options.by = BY::FUNCTION;
  options.frames = request.all_frames ? reports::FRAMES::ALL : reports::FRAMES::FOLDED;
  CALL_TREE tree = CALL_TREE::build(stacks, options);
  tree.sort_by(request.sort);
  std::vector<std::string> names;
  for (const std::uint32_t node : tree.children(CALL_TREE::root)) {
    const FRAME_PLACE& place = places[tree.nodes()[node].place];
    const std::string name = printable(place.function);
    if (name.empty() || place.is_of_lost || place.is_catch_all ||
        std::find(names.begin(), names.end(), name) != names.end())
      continue;
    names.push_back(name);
    if (names.size() == most) break;
  }
  return fmt::format("{}", fmt::join(names, ", "));
}

void expect_any(const std::vector<bool>& from, const std::vector<CALL_STACKS>& stacks,
                const PLACES& places, const TREE_REQUEST& request) {
  if (from.empty() || std::find(from.begin(), from.end(), true) != from.end()) return;
  std::string sentence = "--from: no call path has a function of that name";
  if (const std::string names = outermost_functions(stacks, places, request); !names.empty())
    sentence += "; outermost are " + names;
  throw std::runtime_error(sentence);
}

void expect_bin(const std::vector<RESOLVER::PROCESS_STACKS>& processes, const std::string& bin) {
  if (bin.empty()) return;
  for (const auto& process : processes) {
    const auto& bins = process.stacks.paths().bins;
    if (std::find(bins.begin(), bins.end(), bin) != bins.end()) return;
  }
  throw std::runtime_error(
      fmt::format("--bin: no call path is known to be of a bin \"{}\" (tuk-mem run "
                  "--call-paths-per-bin tells them apart)",
                  printable(bin)));
}

CALL_TREE_OPTIONS options_of(const TREE_REQUEST& request, const PLACES& places) {
  CALL_TREE_OPTIONS options;
  options.direction =
      request.from.empty() ? CALL_TREE_OPTIONS::CALLERS : CALL_TREE_OPTIONS::CALLEES;
  options.by = request.by;
  options.frames = request.all_frames ? reports::FRAMES::ALL : reports::FRAMES::FOLDED;
  options.focus = places_found(places, PATTERN("--focus", request.focus));
  options.ignored = places_found(places, PATTERN("--ignore", request.ignore));
  options.from = functions_called(places, PATTERN("--from", request.from));
  options.bin = request.bin;
  return options;
}

// One tree for all processes together, or one for each.
struct PART {
  std::string name;  // "" for all together
  CALL_TREE tree;
};

std::string label_of(const FRAME_PLACE& place, const TREE_REQUEST& request) {
  if (place.is_catch_all) return std::string(reports::other_name);
  if (place.is_of_lost) return std::string(place.function);
  std::string module = printable(place.module);
  const bool has_file = reports::is_known_file(place.file);
  if (request.by == BY::MODULE) return module;
  const std::string function = request.by == BY::FILE ? "" : printable(place.function);
  if (!has_file) return module.empty() ? function : fmt::format("{}  [{}]", function, module);
  std::string file = printable(request.full_paths ? place.file : base_name(place.file));
  if (request.by == BY::LINE && place.line != 0) file += fmt::format(":{}", place.line);
  return function.empty() ? file : fmt::format("{}  {}", function, file);
}

// What is shown of a node's children, and the sum of what is not.
struct SHOWN_CHILDREN {
  std::vector<std::uint32_t> nodes;
  std::size_t more = 0;
  PATH_FIGURES others;
};

class VIEW {
 public:
  VIEW(const CALL_TREE& tree, const PLACES& places, const TREE_REQUEST& request)
      : m_tree(tree), m_places(places), m_request(request), m_match("--match", request.match) {
    const auto total = static_cast<double>(tree.nodes()[CALL_TREE::root].all[request.sort]);
    const double percent = request.percent_limit.value_or(request.json ? 0 : percent_limit_of_text);
    m_least = std::fabs(total) * percent / 100;  // NOLINT(readability-magic-numbers)
  }

  SHOWN_CHILDREN children(std::uint32_t node) const {
    SHOWN_CHILDREN shown;
    for (const std::uint32_t child : m_tree.children(node)) {
      if (is_shown(child, shown.nodes.size())) {
        shown.nodes.push_back(child);
      } else {
        ++shown.more;
        shown.others += m_tree.nodes()[child].all;
      }
    }
    return shown;
  }
  bool is_worth_a_line(const PATH_FIGURES& figures) const {
    return std::fabs(static_cast<double>(figures[m_request.sort])) >= m_least;
  }

 private:
  bool is_shown(std::uint32_t node, std::size_t before) const {
    const CALL_TREE::NODE& child = m_tree.nodes()[node];
    if (!is_worth_a_line(child.all)) return false;
    if (child.parent != CALL_TREE::root) return true;
    if (m_request.top != 0 && before == m_request.top) return false;
    const FRAME_PLACE& place = m_places[child.place];
    return m_match.is_empty() ||
           m_match.is_found_in_place(place.module, place.function, place.file, place.line);
  }

  const CALL_TREE& m_tree;
  const PLACES& m_places;
  const TREE_REQUEST& m_request;
  PATTERN m_match;
  double m_least = 0;
};

class TREE_TABLE {
 public:
  TREE_TABLE(const CALL_TREE& tree, const PLACES& places, const TREE_REQUEST& request)
      : m_tree(tree), m_places(places), m_request(request), m_view(tree, places, request) {
    m_has_own = !request.from.empty();
    m_table.add_column(fmt::format("{}%", reports::figure_columns[request.sort].heading),
                       TEXT_TABLE::COLUMN::FIGURE);
    for (const FIGURE figure : request.columns)
      m_table.add_column(std::string(reports::figure_columns[figure].heading),
                         TEXT_TABLE::COLUMN::FIGURE);
    if (m_has_own) m_table.add_column("OWN", TEXT_TABLE::COLUMN::FIGURE);
    m_table.add_column(m_has_own ? "CALLEES" : "CALLERS", TEXT_TABLE::COLUMN::TEXT);
  }

  void print(OUTPUT& out) {
    add_all();
    const CALL_TREE::NODE& root = m_tree.nodes()[CALL_TREE::root];
    add(root.all, root.own, "total");
    m_table.print(out, out.width());
  }

 private:
  // A node whose place in the text is known; or, without one, the sum of others.
  struct LINE {
    std::uint32_t node;
    std::string first;   // in front of it
    std::string indent;  // in front of what is below
    std::size_t more = 0;
    PATH_FIGURES others = {};
  };

  // Depth first, without recursion: nobody knows how deep a stack is. Where there is but one way
  // on, the text does not move to the right.
  void add_all() {
    std::vector<LINE> waiting;
    push_children(waiting, CALL_TREE::root, "", "", "  ");
    while (!waiting.empty()) {
      const LINE line = std::move(waiting.back());
      waiting.pop_back();
      if (line.more != 0) {
        add(line.others, {}, fmt::format("{}({} more)", line.first, line.more));
        continue;
      }
      const CALL_TREE::NODE& node = m_tree.nodes()[line.node];
      add(node.all, node.own, line.first + label_of(m_places[node.place], m_request));
      push_children(waiting, line.node, line.indent, line.indent + "- ", line.indent + "  ");
    }
  }

  void push_children(std::vector<LINE>& waiting, std::uint32_t node, const std::string& alone,
                     const std::string& first, const std::string& indent) {
    const SHOWN_CHILDREN shown = m_view.children(node);
    const bool has_more =
        shown.more != 0 && (node == CALL_TREE::root || m_view.is_worth_a_line(shown.others));
    const bool branches = node == CALL_TREE::root || shown.nodes.size() + (has_more ? 1 : 0) > 1;
    if (has_more) waiting.push_back({0, branches ? first : alone, "", shown.more, shown.others});
    std::for_each(shown.nodes.rbegin(), shown.nodes.rend(), [&](std::uint32_t child) {
      waiting.push_back({child, branches ? first : alone, branches ? indent : alone});
    });
  }

  void add(const PATH_FIGURES& all, const PATH_FIGURES& own, std::string text) {
    const auto total = static_cast<double>(m_tree.nodes()[CALL_TREE::root].all[m_request.sort]);
    constexpr double hundred = 100;
    std::vector<std::string> cells = {
        total > 0
            ? fmt::format("{:.1f}", hundred * static_cast<double>(all[m_request.sort]) / total)
            : ""};
    for (const FIGURE figure : m_request.columns)
      cells.push_back(figure_text(figure, all[figure], m_request.bytes));
    if (m_has_own)
      cells.push_back(figure_text(m_request.sort, own[m_request.sort], m_request.bytes));
    cells.push_back(std::move(text));
    m_table.add_row(std::move(cells));
  }

  const CALL_TREE& m_tree;
  const PLACES& m_places;
  const TREE_REQUEST& m_request;
  VIEW m_view;
  TEXT_TABLE m_table;
  bool m_has_own = false;
};

JSON json_of(const FRAME_PLACE& place) {
  reports::GROUP names;
  if (place.is_catch_all) names.name = reports::other_name;
  names.module = place.module;
  names.file = place.file;
  names.line = place.line;
  names.function = place.function;
  return json_of_names(names);
}

// A list, since JSON that is nested as deep as stacks are is more than many readers take.
JSON json_of(const PART& part, const PLACES& places, const TREE_REQUEST& request) {
  const VIEW view(part.tree, places, request);
  JSON json;
  if (!part.name.empty()) json["process"] = part.name;
  const auto& nodes = part.tree.nodes();
  const auto known = PATH_FIGURES::known();
  std::map<std::uint32_t, std::size_t> frames;  // by place
  JSON names = JSON::array();
  add_figures(json["total"] = JSON::object(), nodes[CALL_TREE::root].all.figures(), known);
  JSON rows = JSON::array();
  std::vector<std::pair<std::uint32_t, JSON>> waiting;
  const auto push_children = [&](std::uint32_t node, const JSON& number) {
    const auto children = view.children(node).nodes;
    std::for_each(children.rbegin(), children.rend(),
                  [&](std::uint32_t child) { waiting.emplace_back(child, number); });
  };
  push_children(CALL_TREE::root, nullptr);
  while (!waiting.empty()) {
    const auto [number, parent] = std::move(waiting.back());
    waiting.pop_back();
    const CALL_TREE::NODE& node = nodes[number];
    const std::size_t row = rows.size();
    const auto [frame, is_new] = frames.emplace(node.place, frames.size());
    if (is_new) names.push_back(json_of(places[node.place]));
    JSON& object = rows.emplace_back();
    object["frame"] = frame->second;
    object["parent"] = parent;
    add_figures(object, node.all.figures(), known);
    add_figures(object["own"] = JSON::object(), node.own.figures(), known);
    push_children(number, row);
  }
  json["frames"] = std::move(names);
  json["nodes"] = std::move(rows);
  return json;
}

void print_json(OUTPUT& out, const reports::RUN& run, const std::vector<PART>& parts,
                const PLACES& places, const TREE_REQUEST& request) {
  JSON json;
  json["run"] = run.path;
  json["tree"] = request.from.empty() ? "callers" : "callees";
  json["by"] = request.by_name;
  json["sort"] = reports::figure_columns[request.sort].key;
  JSON& tables = json["tables"] = JSON::array();
  for (const PART& part : parts) tables.push_back(json_of(part, places, request));
  out.write(text_of(json));
}

}  // namespace

void show_tree(OUTPUT& out, const reports::RUN& run, const TREE_REQUEST& request) {
  RESOLVER resolver;
  const auto processes = resolve_call_paths(resolver, run);
  expect_bin(processes, request.bin);
  const CALL_TREE_OPTIONS options = options_of(request, resolver.places());
  std::vector<CALL_STACKS> stacks;
  stacks.reserve(processes.size());
  for (const auto& process : processes) stacks.push_back(process.stacks);
  expect_any(options.from, stacks, resolver.places(), request);
  std::vector<PART> parts;
  if (request.per_process)
    for (const auto& process : processes)
      parts.push_back({process.process->name, CALL_TREE::build({&process.stacks, 1}, options)});
  else
    parts.push_back({"", CALL_TREE::build(stacks, options)});
  for (PART& part : parts) part.tree.sort_by(request.sort);
  if (request.json) return print_json(out, run, parts, resolver.places(), request);
  for (const PART& part : parts) {
    if (&part != &parts.front()) out.write("\n");
    out.write((part.name.empty() ? name_of(run) : printable(part.name)) + "\n");
    TREE_TABLE(part.tree, resolver.places(), request).print(out);
  }
}

}  // namespace command
