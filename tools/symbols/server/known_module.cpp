#include "tools/symbols/server/known_module.h"

#include <utility>

#include "tools/symbols/core/answer.h"
#include "tools/symbols/server/module_store.h"

namespace symbols {

namespace {

using REFUSAL = MEM_SYMBOL_PROTOCOL::REFUSAL;

// The debug information may be damaged and the symbol table not: after so many workers have ended,
// the next one reads that alone. After as many again the module is given up.
constexpr int failures_before_caution = 4;
constexpr int most_failures = 8;

// What a map takes beside the bytes, about.
constexpr std::uint64_t bytes_beside_answer = 96;

}  // namespace

QUESTION::QUESTION(ASKER& the_asker, std::uint32_t the_number,
                   std::shared_ptr<KNOWN_MODULE> the_module)
    : asker(&the_asker), number(the_number), module(std::move(the_module)) {
  ++module->m_open_questions;
}

QUESTION::~QUESTION() { --module->m_open_questions; }

void KNOWN_MODULE::ask(const std::shared_ptr<QUESTION>& question) {
  m_last_use = CLOCK::now();
  if (m_failures >= most_failures) {
    question->refusal = REFUSAL::unreadable;
    return question->asker->settled(question);
  }
  for (const std::uint64_t address : question->addresses) {
    if (m_answers.contains(address)) continue;
    const auto [waiting, is_new] = m_waiting.try_emplace(address);
    if (is_new) m_queue.push_back(address);
    waiting->second.push_back(question);
    ++question->missing;
  }
  if (question->missing == 0) return question->asker->settled(question);
  go_on();
}

void KNOWN_MODULE::go_on() {
  if (m_queue.empty() || (m_worker && !m_worker->asked().empty())) return;
  if (!m_worker) {
    if (!m_store.has_room_for_worker()) return m_store.wait_for_room(*this);
    m_worker = WORKER::start(
        m_store.loop(), *this,
        {.descriptor = m_file.number(),
         .path = m_path,
         .memory = m_store.memory_limit(),
         .depth = m_failures < failures_before_caution ? DEPTH::everything : DEPTH::symbol_table});
    if (!m_worker) return refuse_all(REFUSAL::for_now);
  }
  feed_worker();
}

void KNOWN_MODULE::feed_worker() {
  std::vector<std::uint64_t> addresses;
  while (addresses.size() < WORKER::most_asked && !m_queue.empty()) {
    addresses.push_back(m_queue.front());
    m_queue.pop_front();
  }
  m_last_fed = m_last_sign = CLOCK::now();
  m_worker->ask(addresses);
}

void KNOWN_MODULE::keep(std::uint64_t address, std::string bytes) {
  m_bytes_of_answers += bytes.size() + bytes_beside_answer;
  m_answers.insert_or_assign(address, std::move(bytes));
  const auto waiting = m_waiting.extract(address);
  if (waiting.empty()) return;
  for (const std::shared_ptr<QUESTION>& question : waiting.mapped())
    if (--question->missing == 0 && question->asker != nullptr) question->asker->settled(question);
}

void KNOWN_MODULE::answered(std::uint64_t address, std::string_view bytes) {
  m_last_sign = CLOCK::now();
  keep(address, std::string(bytes));
  if (!m_worker->asked().empty()) return;
  const bool may_have_grown = has_worker_grown();
  if (may_have_grown) m_worker_memory = m_worker->private_memory();
  go_on();
  if (may_have_grown) m_store.make_room(*this);
}

// Looking costs as much as a quick answer, for which a worker can't have read much.
bool KNOWN_MODULE::has_worker_grown() {
  constexpr int most_unseen = 16;
  constexpr auto quick = std::chrono::milliseconds(4);
  if (++m_answers_unseen < most_unseen && m_last_sign - m_last_fed < quick) return false;
  m_answers_unseen = 0;
  return true;
}

void KNOWN_MODULE::worker_refuses(REFUSAL::REASON reason) {
  m_worker.reset();
  if (reason == REFUSAL::unreadable) m_failures = most_failures;
  refuse_all(reason);
}

// It may have been ended from outside: only the address at which a second one ends stays unknown,
// for all. The next worker goes on behind it.
void KNOWN_MODULE::worker_ended() {
  const std::deque<std::uint64_t> asked = m_worker->asked();
  m_worker.reset();
  m_queue.insert(m_queue.begin(), asked.begin(), asked.end());
  if (!asked.empty()) {
    ++m_failures;
    if (std::exchange(m_suspect, asked.front()) == asked.front()) {
      m_queue.pop_front();
      keep(asked.front(), encoded_unknown());
    }
  }
  if (m_failures >= most_failures) refuse_all(REFUSAL::unreadable);
  go_on();
}

void KNOWN_MODULE::refuse_all(REFUSAL::REASON reason) {
  m_queue.clear();
  for (const auto& [address, questions] : std::exchange(m_waiting, {}))
    for (const std::shared_ptr<QUESTION>& question : questions) {
      if (question->refusal != 0 || question->asker == nullptr) continue;
      question->refusal = reason;
      question->asker->settled(question);
    }
}

void KNOWN_MODULE::forget_answers() {
  m_answers.clear();
  m_bytes_of_answers = 0;
}

}  // namespace symbols
