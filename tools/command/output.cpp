#include "tools/command/output.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace command {

void tell_as_it_is(std::string_view text) { std::fwrite(text.data(), 1, text.size(), stderr); }

void tell(std::string_view sentence) { tell_as_it_is(fmt::format("tuk-mem: {}\n", sentence)); }

void keep_closed_streams_closed() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (fcntl(stream, F_GETFD) == -1)
      (void)!open("/dev/null", (stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) | O_CLOEXEC);
}

OUTPUT::OUTPUT(const std::string& file_name)
    : m_name(file_name.empty() || file_name == "-" ? "standard output" : file_name),
      m_file(m_name == "standard output" ? stdout : std::fopen(m_name.c_str(), "wbe")) {
  if (m_file == nullptr) fail();
}

OUTPUT::~OUTPUT() {
  if (m_file != nullptr && m_file != stdout) std::fclose(m_file);
}

void OUTPUT::write(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), m_file) != text.size()) fail();
}

void OUTPUT::close() {
  if (std::fflush(m_file) != 0) fail();
  if (m_file == stdout) return;
  std::FILE* const file = m_file;
  m_file = nullptr;
  if (std::fclose(file) != 0) fail();
}

std::size_t OUTPUT::width() const {
  winsize size{};
  return ioctl(fileno(m_file), TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

void OUTPUT::fail() const {
  if (errno == EPIPE) throw READER_LEFT();
  throw std::runtime_error(fmt::format("{} can't be written: {}", m_name, std::strerror(errno)));
}

}  // namespace command
