// A module's file that is damaged. The input is what is written over a good one: an offset of three
// bytes, and a byte, each; the first says how much of the file there is.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "tools/symbols/core/module.h"

namespace {

std::string good_module() {
  std::ifstream file(GOOD_MODULE, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void damage(std::string& file, const unsigned char* data, std::size_t size) {
  for (std::size_t i = 0; i + 4 <= size; i += 4) {
    const std::size_t offset = data[i] + 256U * data[i + 1] + 65536U * data[i + 2];
    if (i == 0 && data[3] % 4 == 0) file.resize(offset % file.size() + 1);
    if (i != 0) file[offset % file.size()] = static_cast<char>(data[i + 3]);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static const std::string good = good_module();
  if (good.empty()) std::abort();
  std::string file = good;
  damage(file, data, size);
  const int descriptor = memfd_create("module", MFD_CLOEXEC);
  if (write(descriptor, file.data(), file.size()) != static_cast<ssize_t>(file.size()))
    std::abort();
  if (const auto module = symbols::MODULE::open(descriptor, "/nowhere/module"))
    for (std::uint64_t address = 0; address < good.size(); address += 64)
      if (module->look_up(address).empty()) std::abort();
  close(descriptor);
  return 0;
}
