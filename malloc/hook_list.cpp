#include "malloc/hook_list.h"

constinit MEM_HOOK_LIST<MEM_NEW_HOOK> mem_new_hooks;
constinit MEM_HOOK_LIST<MEM_DELETE_HOOK> mem_delete_hooks;

[[gnu::tls_model("initial-exec")]] constinit thread_local void const* mem_told_of = nullptr;
