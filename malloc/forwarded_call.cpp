#include "malloc/forwarded_call.h"

#include "malloc/hook_list.h"

[[gnu::tls_model("initial-exec")]] constinit thread_local MEM_CALLS_OF_THREAD mem_calls;

// What an inner call was given and the outermost does not give is somebody's all the same: a
// pool's, for instance.
void MEM_FORWARDED_CALL::tell_of_another(void const* block, std::size_t requested) {
  mem_tell_of_new_block(block, requested);
}

// One can be kept back.
void MEM_FORWARDED_CALL::keep(void const* block, std::size_t requested) {
  void const* const former = std::exchange(mem_calls.given, block);
  const std::size_t former_requested = std::exchange(mem_calls.requested, requested);
  if (former != nullptr && former != block) mem_tell_of_new_block(former, former_requested);
}
