// The command as a user runs it, in a directory of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/run_program.h"
#include "tests/support/temporary_directory.h"

class THE_COMMAND : public testing::Test {
 protected:
  RUN run(const std::vector<std::string>& words, const std::string& prefix = "") const {
    return RUN({.path = TUK_MEM_COMMAND, .arguments = words, .shell_prefix = prefix});
  }
  std::string in(const std::string& name) const { return m_directory.path + "/" + name; }

  TEMPORARY_DIRECTORY m_directory;
};
