// Running a program of the tests under the real allocator and the library, and comparing its
// reports with the books that it printed itself.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>

#include "tests/support/report.h"
#include "tests/support/run_program.h"

using ENVIRONMENT = std::map<std::string, std::string>;
inline const ENVIRONMENT everything = {{"KORVANE_MEM_PROFILE_ALL", "1"}};
inline const ENVIRONMENT per_fileline = {{"KORVANE_MEM_PROFILE_PER_FILELINE", "1"}};

/// The libraries to preload of the allocator that the tests are run over: $ALLOCATOR, or the one
/// that has hooks itself. Some give no block for pvalloc.
std::vector<std::string> allocator();
bool allocator_is(const std::string& part_of_name);

/// `environment`, with the symbolizer that the tests are run with, if one is set for them.
ENVIRONMENT with_symbolizer(ENVIRONMENT environment);

/// A program below programs/, with the allocator preloaded; `words` are its arguments.
inline PROGRAM tracked(const std::string& name, std::vector<std::string> words,
                       ENVIRONMENT environment = {}) {
  return {.path = std::string(PROGRAMS_DIRECTORY) + "/" + name,
          .arguments = std::move(words),
          .environment = with_symbolizer(std::move(environment)),
          .preload = allocator()};
}

/// A script of a preloaded bash.
inline PROGRAM shell(const std::string& script, ENVIRONMENT environment = per_fileline,
                     const std::string& prefix = "") {
  return {.path = "/bin/bash",
          .arguments = {"-c", script},
          .environment = with_symbolizer(std::move(environment)),
          .preload = {TUK_MEM_LIBRARY, TCMALLOC_LIBRARY},
          .shell_prefix = prefix};
}

inline std::set<std::string> names_in(const std::filesystem::path& directory) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory))
    names.insert(entry.path().filename());
  return names;
}

/// File name without directory and line, as "name:line".
std::string place(const std::string& file, const std::string& line);

/// A program's books as it printed them: per place, per column of the fileline report.
using BOOKS = std::map<std::string, std::map<std::string, std::int64_t>>;
BOOKS books_of(const RUN& run);

/// Expects the report's rows of every place in the books to sum up to the books' figures, the
/// maxima too where one address stands for the place.
void expect_books(const REPORT& fileline, const BOOKS& books);
