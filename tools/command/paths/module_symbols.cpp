#include "tools/command/paths/module_symbols.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <utility>

#include "mem/symbolizer/elf_identity.h"
#include "tools/symbols/core/answer.h"

namespace command {

using namespace std::chrono_literals;

namespace {

// Beside what this process has itself, which those that read the files are born with.
constexpr std::uint64_t most_memory = std::uint64_t{4} << 30;

std::string build_id_of(const MEM_ELF_IDENTITY& identity) {
  std::string text;
  for (const unsigned char byte : identity.build_id) text += fmt::format("{:02x}", byte);
  return text;
}

// The file may have one without zeros at its end, the other has them.
bool is_same(std::string a, std::string b) {
  const std::size_t size = std::max(a.size(), b.size());
  a.resize(size, '0');
  b.resize(size, '0');
  return a == b;
}

// Or put in its place: what is unpacked or installed has the time of writing that it was given.
bool is_written_after(int file, const std::string& moment) {
  struct stat status {};
  if (fstat(file, &status) != 0) return false;
  const std::time_t changed = std::max(status.st_mtime, status.st_ctime);
  return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(changed)) > moment;
}

// Why the file is not that module, if it is not.
std::optional<std::string> fault_of(const symbols::DESCRIPTOR& file,
                                    const MODULE_SYMBOLS::MODULE& module) {
  if (!file.is_open()) return std::strerror(errno);
  const MEM_ELF_IDENTITY identity = MEM_ELF_IDENTITY::of_file(file.number());
  if (!module.build_id.empty() && !is_same(build_id_of(identity), module.build_id))
    return "another build than the one that ran";
  if (module.build_id.empty() && !module.began.empty() &&
      is_written_after(file.number(), module.began))
    return "no build id, and written or put there since the program began";
  return std::nullopt;
}

bool names_function(const std::vector<symbols::FRAME>& frames) {
  return std::any_of(frames.begin(), frames.end(),
                     [](const symbols::FRAME& frame) { return !frame.function.empty(); });
}

}  // namespace

MODULE_SYMBOLS::MODULE_SYMBOLS() : m_store(m_loop, most_memory) {
  unsetenv("DEBUGINFOD_URLS");  // what is not on this machine is not waited for
}

void MODULE_SYMBOLS::ask(const QUESTIONS& questions, READER& reader) {
  m_reader = &reader;
  m_modules.clear();
  for (const auto& [module, addresses] : questions) ask(module, addresses);
  wait();
}

void MODULE_SYMBOLS::ask(const MODULE& module, const std::vector<std::uint64_t>& addresses) {
  symbols::DESCRIPTOR file(open(module.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (const auto fault = fault_of(file, module)) return m_reader->refused(module, *fault);
  const auto opened = m_store.open(std::move(file), module.path);
  auto const* const known = std::get_if<std::shared_ptr<symbols::KNOWN_MODULE>>(&opened);
  if (known == nullptr) return m_reader->refused(module, "no module that can be read");
  ASKER& asker = *this;
  const auto question = std::make_shared<symbols::QUESTION>(
      asker, static_cast<std::uint32_t>(m_modules.size()), *known);
  m_modules.push_back(&module);
  question->addresses = addresses;
  ++m_open;
  (*known)->ask(question);
}

void MODULE_SYMBOLS::settled(const std::shared_ptr<symbols::QUESTION>& question) {
  --m_open;
  const MODULE& module = *m_modules[question->number];
  if (question->refusal != 0) return m_reader->refused(module, "it can't be read");
  std::vector<std::vector<symbols::FRAME>> answers;
  for (const std::uint64_t address : question->addresses)
    answers.push_back(symbols::decoded(question->module->answer_to(address)));
  if (std::none_of(answers.begin(), answers.end(), names_function))
    return m_reader->refused(module, "it has nothing that tells of its functions, or not any more");
  for (std::size_t i = 0; i < answers.size(); ++i)
    m_reader->answered(module, question->addresses[i], std::move(answers[i]));
}

void MODULE_SYMBOLS::wait() {
  constexpr auto longest_turn = 2s;
  auto next_sweep = symbols::KNOWN_MODULE::CLOCK::now() + longest_turn;
  while (m_open > 0) {
    m_loop.turn(longest_turn);
    m_store.start_waiting();
    if (symbols::KNOWN_MODULE::CLOCK::now() < next_sweep) continue;
    m_store.sweep();
    next_sweep += longest_turn;
  }
}

}  // namespace command
