#include "mem/host/callbacks.h"

constinit MEM_HOST_CALLBACKS mem_host_callbacks{};

void mem_set_msg_local_vdebug_callback(MEM_MESSAGE_CALLBACK callback) {
  mem_host_callbacks.msg_local_vdebug = callback;
}

void mem_set_msg_local_vinfo_callback(MEM_MESSAGE_CALLBACK callback) {
  mem_host_callbacks.msg_local_vinfo = callback;
}

void mem_set_cfg_is_on_callback(bool (*callback)(const char*, bool)) {
  mem_host_callbacks.cfg_is_on = callback;
}

void mem_set_cfg_get_value_callback(void (*callback)(const char*, std::string*)) {
  mem_host_callbacks.cfg_get_value = callback;
}

void mem_set_cfg_get_int_value_callback(void (*callback)(const char*, int*, int)) {
  mem_host_callbacks.cfg_get_int_value = callback;
}

void mem_set_atcl_run_internal_tcl_cmd_callback(bool (*callback)(const char*)) {
  mem_host_callbacks.atcl_run_internal_tcl_cmd = callback;
}

void mem_set_gen_get_korvane_path_callback(std::string (*callback)()) {
  mem_host_callbacks.gen_get_korvane_path = callback;
}

void mem_set_gen_get_db_dir_path_string_callback(std::string (*callback)()) {
  mem_host_callbacks.gen_get_db_dir_path_string = callback;
}

void mem_set_gen_get_is_ui_process_callback(bool (*callback)()) {
  mem_host_callbacks.gen_get_is_ui_process = callback;
}

void mem_set_gen_get_module_filename_callback(std::string (*callback)()) {
  mem_host_callbacks.gen_get_module_filename = callback;
}

void mem_set_gen_get_project_output_directory_callback(const char* (*callback)()) {
  mem_host_callbacks.gen_get_project_output_directory = callback;
}

namespace {

std::string text_from(std::string (*callback)()) {
  return callback == nullptr ? std::string() : callback();
}

}  // namespace

bool mem_atcl_run_internal_tcl_cmd(const char* command) {
  const auto callback = mem_host_callbacks.atcl_run_internal_tcl_cmd;
  return callback != nullptr && callback(command);
}

std::string mem_gen_get_korvane_path() {
  return text_from(mem_host_callbacks.gen_get_korvane_path);
}

std::string mem_gen_get_db_dir_path_string() {
  return text_from(mem_host_callbacks.gen_get_db_dir_path_string);
}

bool mem_gen_get_is_ui_process() {
  const auto callback = mem_host_callbacks.gen_get_is_ui_process;
  return callback != nullptr && callback();
}

std::string mem_gen_get_module_filename() {
  return text_from(mem_host_callbacks.gen_get_module_filename);
}

const char* mem_gen_get_project_output_directory() {
  const auto callback = mem_host_callbacks.gen_get_project_output_directory;
  return callback == nullptr ? "" : callback();
}
