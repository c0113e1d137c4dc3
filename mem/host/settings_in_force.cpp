#include "mem/host/settings_in_force.h"

#include <iterator>
#include <new>

#include "mem/base/kept_text.h"
#include "mem/host/callbacks.h"

namespace {

using SOURCE = MEM_SETTING_IN_FORCE::SOURCE;

// Two threads that read the same row find the same, unless the host changes its mind in between.
struct NOTE {
  std::atomic<SOURCE> source{MEM_SETTING_IN_FORCE::NOT_READ};
  std::atomic<const MEM_SETTING*> set_by{nullptr};
  std::atomic<char const*> value{""};
};
constinit NOTE notes[std::size(mem_settings)];

NOTE& note_of(const MEM_SETTINGS_ROW& row) { return notes[mem_settings_row_number(row)]; }

// Without a callback or function of the host, a setting is a variable of the environment.
bool host_answers(MEM_SETTING_TYPE type) {
  switch (type) {
    case MEM_SETTING_TYPE::SWITCH:
      return mem_host_callbacks.cfg_is_on != nullptr;
    case MEM_SETTING_TYPE::INTEGER:
      return mem_host_callbacks.cfg_get_int_value != nullptr;
    default:
      return mem_host_callbacks.cfg_get_value != nullptr;
  }
}

SOURCE source_of(const MEM_SETTING* set_by) {
  if (set_by == nullptr) return MEM_SETTING_IN_FORCE::DEFAULT;
  return set_by->source == MEM_SETTING::SETTINGS_FILE && host_answers(set_by->type)
             ? MEM_SETTING_IN_FORCE::SETTINGS_FILE
             : MEM_SETTING_IN_FORCE::ENVIRONMENT;
}

}  // namespace

MEM_SETTING_IN_FORCE mem_setting_in_force(const MEM_SETTINGS_ROW& row) {
  const NOTE& note = note_of(row);
  const MEM_SETTING* const set_by = note.set_by;
  return {note.source, set_by != nullptr ? set_by->name : row.settings[0].name, note.value};
}

// "debug_msg" is read at every message: what has not changed is left alone.
void mem_note_setting(const MEM_SETTINGS_ROW& row, const MEM_SETTING* set_by,
                      std::string_view value) noexcept try {
  NOTE& note = note_of(row);
  if (note.set_by != set_by || note.value.load() != value) note.value = mem_keep_text(value);
  note.set_by = set_by;
  note.source = source_of(set_by);
} catch (const std::bad_alloc&) {  // the setting holds all the same
}

void mem_note_switch_is_off(const MEM_SETTINGS_ROW& row, const MEM_SETTING& setting) {
  const NOTE& note = note_of(row);
  if (note.source == MEM_SETTING_IN_FORCE::NOT_READ || note.set_by == &setting)
    mem_note_setting(row, nullptr, "off");
}
