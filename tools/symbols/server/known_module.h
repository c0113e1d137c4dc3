// A module that some client has opened, and everything that was found out about it.
#pragma once

#include <array>
#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/symbols/server/question.h"
#include "tools/symbols/server/worker.h"

namespace symbols {

class MODULE_STORE;

class KNOWN_MODULE : public WORKER_OWNER {
 public:
  using CLOCK = std::chrono::steady_clock;

  KNOWN_MODULE(MODULE_STORE& store, DESCRIPTOR file, std::string path)
      : m_store(store), m_file(std::move(file)), m_path(std::move(path)) {}
  KNOWN_MODULE(const KNOWN_MODULE&) = delete;
  KNOWN_MODULE& operator=(const KNOWN_MODULE&) = delete;
  virtual ~KNOWN_MODULE() = default;

  /// Settles the question, at once or later.
  void ask(const std::shared_ptr<QUESTION>& question);
  /// Of an address whose question is settled and not refused.
  const std::string& answer_to(std::uint64_t address) const { return m_answers.at(address); }

  /// Gives the worker something to do, starting it when there is room.
  void go_on();
  void refuse_all(MEM_SYMBOL_PROTOCOL::REFUSAL::REASON reason);

  bool has_worker() const { return m_worker != nullptr; }
  bool is_idle() const { return m_open_questions == 0; }
  CLOCK::time_point last_use() const { return m_last_use; }
  /// When the worker last said something, or was given something to do.
  CLOCK::time_point last_sign() const { return m_last_sign; }
  std::uint64_t worker_memory() const { return m_worker ? m_worker_memory : 0; }
  std::uint64_t bytes_of_answers() const { return m_bytes_of_answers; }
  void end_worker() { m_worker.reset(); }
  void forget_answers();

  void answered(std::uint64_t address, std::string_view bytes) override;
  void worker_refuses(MEM_SYMBOL_PROTOCOL::REFUSAL::REASON reason) override;
  void worker_ended() override;

 private:
  friend QUESTION;
  void keep(std::uint64_t address, std::string bytes);
  void feed_worker();
  bool has_worker_grown();

  MODULE_STORE& m_store;
  DESCRIPTOR m_file;
  std::string m_path;
  std::unordered_map<std::uint64_t, std::string> m_answers;
  std::uint64_t m_bytes_of_answers = 0;
  std::unordered_map<std::uint64_t, std::vector<std::shared_ptr<QUESTION>>> m_waiting;
  std::deque<std::uint64_t> m_queue;  // waited for, and not given to the worker
  std::unique_ptr<WORKER> m_worker;
  std::uint64_t m_worker_memory = 0;  // when it was looked at last
  int m_answers_unseen = 0;           // since then
  std::size_t m_open_questions = 0;
  int m_failures = 0;                      // workers that ended over this file
  std::optional<std::uint64_t> m_suspect;  // the address at which the last of them did
  CLOCK::time_point m_last_use{};
  CLOCK::time_point m_last_fed{};
  CLOCK::time_point m_last_sign{};
};

}  // namespace symbols
