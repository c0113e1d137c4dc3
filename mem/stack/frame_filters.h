// The frame rules as texts, and the form of a user's own. Needs the standard library alone: whoever
// shows stacks later, in another process, folds frames by the same rules.
#pragma once

#include <algorithm>
#include <string_view>

/// Whether the rules of the build leave out every frame of this module; "" is no module.
bool mem_rules_reject_module(std::string_view module);
/// Whether they leave out a frame for its function or the path of its source file.
bool mem_rules_reject_frame(std::string_view function, std::string_view path);
/// What rules for source files are about; empty for a path without a directory, which is kept
/// whatever its name.
std::string_view mem_file_of_rules(std::string_view path);

/// Those rules and the user's: prefixes, in whatever container of strings.
template <class PREFIXES>
struct MEM_FRAME_FILTERS {
  const PREFIXES& modules;
  const PREFIXES& functions;
  const PREFIXES& files;

  bool reject_module(std::string_view module) const {
    return mem_rules_reject_module(module) || any_begins(modules, module);
  }
  bool reject_frame(std::string_view function, std::string_view path) const {
    return mem_rules_reject_frame(function, path) || any_begins(functions, function) ||
           any_begins(files, mem_file_of_rules(path));
  }

 private:
  static bool any_begins(const PREFIXES& prefixes, std::string_view text) {
    return std::any_of(prefixes.begin(), prefixes.end(), [&](const auto& prefix) {
      return text.substr(0, prefix.size()) == std::string_view(prefix);
    });
  }
};

/// A line of a file of filters: a command and a prefix, and perhaps "#" and a comment.
struct MEM_FILTER_LINE {
  enum KIND { NOTHING, MODULE, FILE_BASENAME, FUNCTION };
  enum FAULT { WELL, UNKNOWN_COMMAND, NO_PREFIX, FURTHER_TEXT };

  explicit MEM_FILTER_LINE(std::string_view line);

  KIND kind = NOTHING;
  FAULT fault = WELL;
  std::string_view command;
  std::string_view prefix;
};
