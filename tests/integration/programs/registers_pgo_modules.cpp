// Registers modules built with profile-guided optimisation, in no order and some twice.
#include "include/tuk_mem.h"

int main() {
  mem_register_dll_for_pgo("libroute.so", "router, large");
  mem_register_dll_for_pgo("libZoom.so", "viewer");
  mem_register_dll_for_pgo("libroute.so", "");
  mem_register_dll_for_pgo("libroute.so", "router, large");
  mem_register_dll_for_pgo("lib\xC3\xA9.so", "accents");
}
