#include "mem/host/settings.h"

#include "mem/host/environment.h"
#include "mem/host/settings_in_force.h"

namespace {

bool is_on(const MEM_SETTING& setting) {
  switch (setting.source) {
    case MEM_SETTING::ENVIRONMENT:
      return mem_env_is_on(setting.name);
    case MEM_SETTING::SETTINGS_FILE:
      return mem_cfg_is_on(setting.name, false);
    case MEM_SETTING::NONE:
      break;
  }
  return false;
}

std::string text_of(const MEM_SETTING& setting) {
  if (setting.source == MEM_SETTING::NONE) return {};
  if (setting.source == MEM_SETTING::SETTINGS_FILE) return mem_cfg_get_value(setting.name);
  const char* const text = mem_environment_value(setting.name);
  return text == nullptr ? std::string() : std::string(text);
}

}  // namespace

bool mem_setting_is_on(MEM_NAME_OF_SETTING<MEM_SETTING_TYPE::SWITCH> name) {
  const bool on = is_on(name.setting());
  if (on)
    mem_note_setting(name.row(), &name.setting(), "on");
  else
    mem_note_switch_is_off(name.row(), name.setting());
  return on;
}

bool mem_setting_is_on(const MEM_SETTINGS_ROW& row) {
  const MEM_SETTING* set_by = nullptr;
  for (const MEM_SETTING& setting : row.settings)
    if (set_by == nullptr && is_on(setting)) set_by = &setting;
  mem_note_setting(row, set_by, set_by != nullptr ? "on" : "off");
  return set_by != nullptr;
}

bool mem_setting_is_present(MEM_NAME_OF_SETTING<MEM_SETTING_TYPE::PRESENCE> name) {
  const bool on = mem_environment_value(name.setting().name) != nullptr;
  mem_note_setting(name.row(), on ? &name.setting() : nullptr, on ? "on" : "off");
  return on;
}

std::string mem_setting_text(const MEM_SETTINGS_ROW& row) {
  std::string holds;
  const MEM_SETTING* set_by = nullptr;
  for (const MEM_SETTING& setting : row.settings) {
    std::string text = text_of(setting);
    if (text.empty()) continue;
    holds = std::move(text);
    set_by = &setting;
  }
  mem_note_setting(row, set_by, set_by != nullptr ? holds.c_str() : row.default_value);
  return holds;
}
