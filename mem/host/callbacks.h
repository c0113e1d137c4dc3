// The table of functions that the host installs. This folder relies on mem/base.
#pragma once

#include "include/tuk_mem.h"

/// One slot per callback, all null at load. Written by the setters without locking: the host
/// installs callbacks before threads that use them run.
struct MEM_HOST_CALLBACKS {
  MEM_MESSAGE_CALLBACK msg_local_vdebug;
  MEM_MESSAGE_CALLBACK msg_local_vinfo;
  bool (*cfg_is_on)(const char* name, bool default_value);
  void (*cfg_get_value)(const char* name, std::string* out);
  void (*cfg_get_int_value)(const char* name, int* out, int default_value);
  bool (*atcl_run_internal_tcl_cmd)(const char* command);
  std::string (*gen_get_korvane_path)();
  std::string (*gen_get_db_dir_path_string)();
  bool (*gen_get_is_ui_process)();
  std::string (*gen_get_module_filename)();
  const char* (*gen_get_project_output_directory)();
};

extern MEM_HOST_CALLBACKS mem_host_callbacks;
