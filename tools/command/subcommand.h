// What a subcommand is. Each stands in a file of its own; main.cpp has the table of them.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace command {

/// As people know them from comparing tools: a limit was broken, or nothing could be told at all.
enum EXIT_STATUS : int { SUCCEEDED = 0, BROKEN_LIMIT = 1, TROUBLE = 2 };

/// What the command line asks for; gives the exit status.
using ACTION = std::function<int()>;

/// Each adds its subcommand to the program, which sets `action` where that one is asked for.
void add_run(CLI::App& program, ACTION& action);
void add_show(CLI::App& program, ACTION& action);
void add_diff(CLI::App& program, ACTION& action);
void add_check(CLI::App& program, ACTION& action);
void add_export(CLI::App& program, ACTION& action);
void add_html(CLI::App& program, ACTION& action);
void add_snapshot(CLI::App& program, ACTION& action);
void add_top(CLI::App& program, ACTION& action);

}  // namespace command
