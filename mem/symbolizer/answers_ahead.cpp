#include "mem/symbolizer/answers_ahead.h"

#include <algorithm>

#include "mem/base/signals_held.h"

constinit MEM_ANSWERS_AHEAD MEM_ANSWERS_AHEAD::singleton_instance{};

using LOCKED = MEM_LOCKED_WITHOUT_SIGNALS<tbb::spin_mutex>;

void MEM_ANSWERS_AHEAD::keep(const MEM_MODULE_FILE& file, std::uint64_t address,
                             std::string_view frames) {
  if (frames.size() > sizeof ANSWER::frames) return;
  const LOCKED locked(m_lock.mutex);
  ANSWER& answer = m_answers[m_next++ % m_answers.size()];
  answer.file = &file;
  answer.address = address;
  answer.size = frames.copy(answer.frames, frames.size());
}

bool MEM_ANSWERS_AHEAD::take(const MEM_MODULE_FILE& file, std::uint64_t address,
                             MEM_SYMBOL_BYTES& frames) {
  frames.reserve(sizeof ANSWER::frames);
  const LOCKED locked(m_lock.mutex);
  const auto answer =
      std::find_if(m_answers.begin(), m_answers.end(), [&](const ANSWER& candidate) {
        return candidate.file == &file && candidate.address == address;
      });
  if (answer == m_answers.end()) return false;
  frames.assign(answer->frames, answer->frames + answer->size);
  answer->file = nullptr;
  return true;
}

// The lock may have been held.
void MEM_ANSWERS_AHEAD::abandon() {
  for (ANSWER& answer : m_answers) answer.file = nullptr;
  m_lock.unlocked = 0;
}
