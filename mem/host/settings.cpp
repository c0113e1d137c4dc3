#include "mem/host/settings.h"

#include "mem/host/environment.h"

bool mem_setting_is_on(const MEM_SETTING& setting) {
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

bool mem_setting_is_on(const MEM_SETTINGS_ROW& row) {
  for (const MEM_SETTING& setting : row.settings)
    if (mem_setting_is_on(setting)) return true;
  return false;
}

bool mem_setting_is_present(MEM_NAME_OF_SETTING<MEM_SETTING_TYPE::PRESENCE> name) {
  return mem_environment_value(name.setting().name) != nullptr;
}

std::string mem_setting_text(MEM_NAME_OF_SETTING<MEM_SETTING_TYPE::TEXT> name) {
  const MEM_SETTING& setting = name.setting();
  if (setting.source == MEM_SETTING::SETTINGS_FILE) return mem_cfg_get_value(setting.name);
  const char* const text = mem_environment_value(setting.name);
  return text == nullptr ? std::string() : std::string(text);
}
