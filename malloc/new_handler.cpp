#include "malloc/new_handler.h"

#include <cerrno>
#include <new>

#include "malloc/attention.h"
#include "malloc/forwarded_call.h"

bool mem_new_handler_made_room() {
  if (!mem_attention_is(MEM_NEW_HANDLER_WANTED)) return false;
  const std::new_handler handler = std::get_new_handler();
  if (handler == nullptr) return false;
  const MEM_OUTSIDE_OF_CALLS outside;
  try {
    handler();
  } catch (const std::bad_alloc&) {  // how a handler says that there is nothing to be done
    errno = ENOMEM;
    return false;
  }
  return true;
}
