// tuk-mem snapshot and tuk-mem top: what a program that runs holds now.
#include <fmt/core.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <memory>

#include "tools/command/live/growth_table.h"
#include "tools/command/live/profiled_process.h"
#include "tools/command/output.h"
#include "tools/command/subcommand.h"

namespace command {

namespace {

using namespace std::chrono_literals;

constexpr auto patience = 2s;

constexpr char const* idle = "the process is idle: it writes when it next allocates";

int take_one(pid_t pid) {
  PROFILED_PROCESS process(pid);
  const std::optional<std::string> snapshot = process.take_snapshot(patience);
  if (!snapshot) {
    tell(fmt::format("process {}: {}", pid, process.is_there() ? idle : "has ended meanwhile"));
    return BROKEN_LIMIT;
  }
  OUTPUT out;
  out.write(*snapshot + '\n');
  out.close();
  return SUCCEEDED;
}

}  // namespace

void add_snapshot(CLI::App& program, ACTION& action) {
  CLI::App& app = *program.add_subcommand(
      "snapshot", "Has a profiled program write a set of reports now, and prints where.");
  app.footer(
      "Status 1: no set has come within two seconds, since the program allocates nothing.\n"
      "The program was started by 'tuk-mem run', or with KORVANE_MEM_SNAPSHOT_SIGNAL.");
  const auto pid = std::make_shared<pid_t>();
  app.add_option("PID", *pid, "The program's process")->required()->check(CLI::PositiveNumber);
  app.callback([&action, pid] { action = [pid] { return take_one(*pid); }; });
}

void add_top(CLI::App& program, ACTION& action) {
  CLI::App& app = *program.add_subcommand(
      "top", "Shows which lines of a profiled program grow, again and again, until it ends.");
  app.footer("Each round takes a snapshot of the program and removes it again.");
  const auto options = std::make_shared<TOP_OPTIONS>();
  app.add_option("PID", options->process, "The program's process")
      ->required()
      ->check(CLI::PositiveNumber);
  app.add_option("-d,--delay", options->seconds, "Seconds between two rounds (2)")
      ->check(CLI::Range(1U, 3600U))
      ->type_name("SECONDS");
  app.add_option("-n,--rounds", options->rounds, "Rounds, then it ends; 0: until the program does")
      ->type_name("N");
  app.add_option("--top", options->rows, "Lines to show; 0: as many as the terminal has")
      ->type_name("N");
  app.callback([&action, options] { action = [options] { return show_growth(*options); }; });
}

}  // namespace command
