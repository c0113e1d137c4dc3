// A shared object with frames inlined into an exported function.
#include "tests/support/inlined_chain.h"

#line 50 "/chain/library.cpp"
extern "C" void const* address_in_library() { RETURN_FROM_CALL(chain::level<3>()); }
