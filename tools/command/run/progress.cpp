#include "tools/command/run/progress.h"

#include <fmt/core.h>
#include <unistd.h>

#include "tools/command/live/proc_status.h"
#include "tools/command/output.h"
#include "tools/command/units.h"

namespace command {

void PROGRESS::show() {
  const PROC_STATUS status(m_process);
  if (status.bytes("VmRSS") == 0) return;  // it has just ended
  const auto seconds =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - m_start);
  tell_as_it_is(fmt::format("\r\033[K{}:{:02} min   resident {}   heap and stacks {}",
                            seconds.count() / 60, seconds.count() % 60,
                            human(static_cast<std::int64_t>(status.bytes("VmRSS"))),
                            human(static_cast<std::int64_t>(status.bytes("RssAnon")))));
  m_is_shown = true;
}

void PROGRESS::clear() const {
  if (m_is_shown) tell_as_it_is("\r\033[K");
}

}  // namespace command
