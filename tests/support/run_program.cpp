#include "tests/support/run_program.h"

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tests/support/temporary_directory.h"

namespace {

std::string command_line(const PROGRAM& program) {
  std::ostringstream line;
  line << program.shell_prefix << " exec env -i PATH=\"$PATH\"";
  for (const auto& [name, value] : program.environment) line << " '" << name << "=" << value << "'";
  line << " LD_PRELOAD='";
  for (const std::string& library : program.preload) line << library << " ";
  line << "' '" << program.path << "'";
  for (const std::string& argument : program.arguments) line << " '" << argument << "'";
  line << " >.out 2>.err";
  return line.str();
}

}  // namespace

RUN::RUN(const PROGRAM& program) {
  std::string directory = (std::filesystem::temp_directory_path() / "run_XXXXXX").string();
  if (mkdtemp(directory.data()) == nullptr) std::abort();
  m_directory = directory;
  const std::string command = "cd " + directory + ";" + command_line(program);
  const int status = std::system(command.c_str());
  m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  m_out = content_of(m_directory / ".out");
  m_err = content_of(m_directory / ".err");
}

RUN::~RUN() {
  std::error_code ignored;
  std::filesystem::remove_all(m_directory, ignored);
}

std::string RUN::file(const std::string& name) const { return content_of(m_directory / name); }

std::set<std::string> RUN::file_names() const {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(m_directory))
    if (const std::string name = entry.path().filename().string(); name[0] != '.')
      names.insert(name);
  return names;
}
