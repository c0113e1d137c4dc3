#include "mem/symbolizer/tool_request.h"

#include "mem/host/message.h"
#include "mem/symbolizer/debug_information.h"

namespace {

using STATE = MEM_MODULE_FILE::STATE;

void say(char const* what, char const* path, char const* more) {
  mem_tracker_debug("%s %s %s", what, path, more);
}

}  // namespace

MEM_MODULE_FILE* mem_file_to_ask(const MEM_ADDRESS_INFO& info, MEM_SYMBOL_ANSWER& answer) {
  MEM_MODULE_FILE& file = MEM_MODULE_FILE::of_path(info.module_path);
  const STATE state = file.state();
  answer = state == STATE::not_now ? MEM_SYMBOL_ANSWER::for_now : MEM_SYMBOL_ANSWER::for_good;
  if (state == STATE::usable) return &file;
  if (state == STATE::not_now && file.is_first(MEM_MODULE_FILE::shortage))
    say("module", file.path(), "can't be looked at: addresses of it stay unknown for now");
  if (state == STATE::unreadable && file.is_first(MEM_MODULE_FILE::file_is_unreadable))
    say("module", file.path(), "can't be read: addresses of it stay unknown");
  return nullptr;
}

MEM_SYMBOL_ANSWER mem_conclude(const MEM_TOOL_OUTCOME& outcome, MEM_MODULE_FILE& file,
                               const MEM_ADDRESS_INFO& info, bool tool_reads_split) {
  if (outcome.trouble != nullptr) say("addr2line for", file.path(), outcome.trouble);
  if (outcome.kind == MEM_TOOL_OUTCOME::unknown_for_now) return MEM_SYMBOL_ANSWER::for_now;
  if (outcome.kind == MEM_TOOL_OUTCOME::answered &&
      file.seems_without_lines(info.file_name_buffer[0] != '\0'))
    if (char const* advice = mem_missing_lines_advice(file.absolute_path(), tool_reads_split))
      say("module", file.path(), advice);
  return MEM_SYMBOL_ANSWER::for_good;
}
