// Asking for a setting of the table.
#pragma once

#include <optional>
#include <string>

#include "mem/host/settings_table.h"

/// Whether a switch is on.
bool mem_setting_is_on(MEM_NAME_OF_SETTING<MEM_SETTING_TYPE::SWITCH> name);
/// Whether any switch of the row is on: the later ones are only asked for when the former are off.
bool mem_setting_is_on(const MEM_SETTINGS_ROW& row);

/// Whether a variable is set at all.
bool mem_setting_is_present(MEM_NAME_OF_SETTING<MEM_SETTING_TYPE::PRESENCE> name);

/// What holds of a row of texts; empty when none is set.
std::string mem_setting_text(const MEM_SETTINGS_ROW& row);
inline std::string mem_setting_text(MEM_NAME_OF_SETTING<MEM_SETTING_TYPE::TEXT> name) {
  return mem_setting_text(name.row());
}

/// The answer of mem_cfg_get_int_value, which is given the table's default.
int mem_setting_integer(MEM_NAME_OF_SETTING<MEM_SETTING_TYPE::INTEGER> name);

// Of a number that is no number of its type, one line on standard error says what was set, what is
// allowed and what holds now. In the environment the leading digits count, else the default does;
// of a setting the error of the standard conversion is thrown, std::invalid_argument or
// std::out_of_range, named "stoull" or "stoi".

/// What holds of a row of unsigned numbers.
std::uint64_t mem_setting_unsigned(const MEM_SETTINGS_ROW& row);
/// What holds of a row of decimal and hexadecimal numbers; nothing when none is set.
std::optional<int> mem_setting_signed(const MEM_SETTINGS_ROW& row);
