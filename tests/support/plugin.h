// Loading the plug-in, each time in another build, as a host that reloads it does.
#pragma once

#include <dlfcn.h>

#include <filesystem>
#include <string>

/// Calls `allocate` from a frame of the build's size, which has no debug information.
using TAKE_IN_PLUGIN = void* (*)(void* (*allocate)(std::size_t), std::size_t size);

struct PLUGIN {
  explicit PLUGIN(int frame_size) {
    std::filesystem::copy_file(PLUGINS_DIRECTORY "/libplugin_" + std::to_string(frame_size) + ".so",
                               "plugin.so", std::filesystem::copy_options::overwrite_existing);
    m_module = dlopen("./plugin.so", RTLD_NOW);
    take = reinterpret_cast<TAKE_IN_PLUGIN>(dlsym(m_module, "take_in_plugin"));
  }
  void unload() const { dlclose(m_module); }

  TAKE_IN_PLUGIN take;

 private:
  void* m_module;
};
