// What keeps a command from being carried out.
#pragma once

#include <stdexcept>
#include <string>

namespace command {

/// A sentence for the user, and the status the command ends with: 2 for what was asked wrongly, 125
/// for what the command itself could not do, 126 for a program that can't be run or profiled, 127
/// for one that is not there.
class FAILURE : public std::runtime_error {
 public:
  FAILURE(int status, const std::string& sentence)
      : std::runtime_error(sentence), m_status(status) {}
  int status() const { return m_status; }

  static constexpr int usage = 2;
  static constexpr int own = 125;
  static constexpr int not_runnable = 126;
  static constexpr int not_found = 127;

 private:
  int m_status;
};

}  // namespace command
