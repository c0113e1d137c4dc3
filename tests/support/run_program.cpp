#include "tests/support/run_program.h"

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string_view>

extern char** environ;

namespace {

std::string content_of(const std::filesystem::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

std::string in_quotes(std::string_view word) {
  std::string result(1, '\'');
  for (const char c : word) {
    if (c == '\'') result += "'\\'";
    result += c;
  }
  result += '\'';
  return result;
}

bool would_disturb(std::string_view variable) {
  constexpr std::array<std::string_view, 3> prefixes = {"KORVANE_MEM_", "MEM_", "mem_"};
  return std::any_of(prefixes.begin(), prefixes.end(),
                     [&](std::string_view prefix) { return variable.starts_with(prefix); });
}

// Takes out what the test itself may run under and puts in what it asks for.
std::string command_line(const PROGRAM& program) {
  std::ostringstream line;
  line << program.shell_prefix << " exec env";
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string_view text(*variable);
    if (would_disturb(text)) line << " -u " << in_quotes(text.substr(0, text.find('=')));
  }
  for (const auto& [name, value] : program.environment)
    line << " " << in_quotes(name + "=" + value);
  std::string preload;
  for (const std::string& library : program.preload) preload.append(library).append(" ");
  if (!preload.empty()) line << " LD_PRELOAD=" << in_quotes(preload);
  line << " " << in_quotes(program.path);
  for (const std::string& argument : program.arguments) line << " " << in_quotes(argument);
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

bool RUN::has_file(const std::string& name) const {
  return std::filesystem::exists(m_directory / name);
}

std::string RUN::file(const std::string& name) const { return content_of(m_directory / name); }

std::vector<std::string> RUN::file_names() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(m_directory))
    if (const std::string name = entry.path().filename().string(); name[0] != '.')
      names.push_back(name);
  std::sort(names.begin(), names.end());
  return names;
}
