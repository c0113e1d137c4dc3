// What the settings were found to be, for those who want to know afterwards: the host may answer
// otherwise by then, or be past answering.
#pragma once

#include <atomic>

#include "mem/host/settings_table.h"

/// A row of the table as it was last read.
struct MEM_SETTING_IN_FORCE {
  enum SOURCE : std::uint8_t { NOT_READ, DEFAULT, ENVIRONMENT, SETTINGS_FILE };

  SOURCE source = NOT_READ;
  char const* name = "";   ///< the one that decided; the row's first where none is set
  char const* value = "";  ///< "on" or "off", a number, a text; stays
};

MEM_SETTING_IN_FORCE mem_setting_in_force(const MEM_SETTINGS_ROW& row);

/// Notes what a row was found to be, and by which of its names; null for none. Any thread.
void mem_note_setting(const MEM_SETTINGS_ROW& row, const MEM_SETTING* set_by,
                      std::string_view value) noexcept;
/// Notes that this one of a row's switches is off. The others were not asked.
void mem_note_switch_is_off(const MEM_SETTINGS_ROW& row, const MEM_SETTING& setting);
