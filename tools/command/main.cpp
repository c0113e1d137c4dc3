// tuk-mem: from reports to answers.
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <sstream>

#include "include/tuk_mem.h"
#include "tools/command/failure.h"
#include "tools/command/output.h"
#include "tools/command/subcommand.h"
#include "tools/command/text.h"

namespace {

using command::ACTION;

/// In the order of the help text.
constexpr void (*subcommands[])(CLI::App&, ACTION&) = {
    command::add_run,    command::add_show, command::add_diff,     command::add_check,
    command::add_export, command::add_html, command::add_snapshot, command::add_top,
};

constexpr char const* description =
    "Runs programs under the heap profiler, and shows, compares, checks and converts its reports.\n"
    "RUN is a directory of reports (of one process, of many, or a snapshot), or one report file.";

constexpr char const* footer =
    "Status 0: done; 1: a limit of 'check' is broken; 2: wrong usage, unreadable input or output;\n"
    "of 'run' the program's own, or 125 to 127, as its help tells.\n"
    "'tuk-mem SUBCOMMAND --help' tells the options of each.";

/// What --version prints.
constexpr char const* formats =
    "tuk-mem " TUK_MEM_VERSION_STRING
    "\n"
    "reads: reports of major version 1, call paths 1\n"
    "writes: run.json 1, JSON of runs 1, CSV, folded stacks, profiles of pprof, JUnit\n";

// Without the value that a flag gives when it negates another: "--no-lines{false}".
class FORMATTER : public CLI::Formatter {
 public:
  std::string make_option_name(const CLI::Option* option, bool is_positional) const override {
    std::string name = CLI::Formatter::make_option_name(option, is_positional);
    for (std::size_t at = 0; (at = name.find("{false}")) != std::string::npos;)
      name.erase(at, std::strlen("{false}"));
    return name;
  }
};

// The words of a sentence on standard error, where trouble is told.
int fail(const std::string& what) {
  command::tell(what);
  return command::TROUBLE;
}

std::string name_of_asked(const CLI::App& program) {
  const auto asked = program.get_subcommands();
  return asked.empty() ? "tuk-mem" : "tuk-mem " + asked.front()->get_name();
}

int tell(const CLI::App& program, const CLI::Success& asked_for) {
  std::ostringstream text;
  program.exit(asked_for, text, text);
  command::OUTPUT out;
  out.write(text.str());
  out.close();
  return command::SUCCEEDED;
}

int run(int argc, char** argv) {
  command::keep_closed_streams_closed();
  CLI::App program(description, "tuk-mem");
  program.footer(footer);
  program.set_version_flag("--version", formats);
  program.require_subcommand(1);
  program.formatter(std::make_shared<FORMATTER>());
  program.get_formatter()->label("REQUIRED", "");
  ACTION action;
  for (const auto add : subcommands) add(program, action);
  try {
    program.parse(argc, argv);
  } catch (const CLI::Success& asked_for) {
    return tell(program, asked_for);
  } catch (const CLI::ParseError& error) {
    if (program.get_subcommands().empty() && argc > 1 && *argv[1] != '-')
      return fail(fmt::format("'{}' is no subcommand\nTry 'tuk-mem --help'.", argv[1]));
    return fail(fmt::format("{}\nTry '{} --help'.", error.what(), name_of_asked(program)));
  }
  return action();
}

}  // namespace

int main(int argc, char** argv) try {
  return run(argc, argv);
} catch (const command::READER_LEFT&) {
  constexpr int as_by_sigpipe = 128 + 13;
  return as_by_sigpipe;
} catch (const std::bad_alloc&) {
  std::fputs("tuk-mem: out of memory\n", stderr);
  return command::TROUBLE;
} catch (const command::FAILURE& failure) {
  fail(command::printable(failure.what()));
  return failure.status();
} catch (const std::exception& error) {
  return fail(command::printable(error.what()));
}
