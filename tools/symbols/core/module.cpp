#include "tools/symbols/core/module.h"

#include <dwarf.h>
#include <elfutils/libdw.h>
#include <elfutils/libdwfl.h>
#include <unistd.h>

#include "tools/symbols/core/demangle.h"

namespace symbols {

namespace {

class DWARF_MODULE : public MODULE {
 public:
  DWARF_MODULE(int descriptor, const std::string& path) : m_dwfl(dwfl_begin(&callbacks)) {
    const int own = dup(descriptor);
    dwfl_report_begin(m_dwfl);
    m_module = dwfl_report_elf(m_dwfl, path.c_str(), path.c_str(), own, 0, true);
    dwfl_report_end(m_dwfl, nullptr, nullptr);
    if (m_module == nullptr) close(own);
  }
  ~DWARF_MODULE() override { dwfl_end(m_dwfl); }
  bool is_open() const { return m_module != nullptr; }

  std::vector<FRAME> look_up(std::uint64_t address) override {
    std::vector<FRAME> frames(1);
    if (Dwfl_Line* line = dwfl_module_getsrc(m_module, address)) {
      int number = 0;
      if (char const* file = dwfl_lineinfo(line, nullptr, &number, nullptr, nullptr, nullptr))
        frames[0].file = file;
      frames[0].line = static_cast<std::uint32_t>(number);
    }
    if (char const* name = dwfl_module_addrname(m_module, address))
      frames[0].function = demangled(name);
    return frames;
  }

 private:
  static char* debug_path;
  static const Dwfl_Callbacks callbacks;
  Dwfl* m_dwfl;
  Dwfl_Module* m_module = nullptr;
};

char* DWARF_MODULE::debug_path = nullptr;
const Dwfl_Callbacks DWARF_MODULE::callbacks{.find_elf = dwfl_build_id_find_elf,
                                             .find_debuginfo = dwfl_standard_find_debuginfo,
                                             .section_address = dwfl_offline_section_address,
                                             .debuginfo_path = &debug_path};

}  // namespace

std::unique_ptr<MODULE> MODULE::open(int descriptor, const std::string& path) {
  auto module = std::make_unique<DWARF_MODULE>(descriptor, path);
  if (!module->is_open()) return nullptr;
  return module;
}

}  // namespace symbols
