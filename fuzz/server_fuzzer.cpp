// What a client of the symbol server sends, and what a worker of its answers. There is no module: a
// descriptor can't be made of bytes.
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

#include "tools/symbols/core/answer.h"
#include "tools/symbols/server/client.h"

namespace {

void say_to_server(std::string_view bytes) {
  int pair[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) std::abort();
  const symbols::DESCRIPTOR ours(pair[0]);
  symbols::LOOP loop;
  symbols::MODULE_STORE store(loop, 1 << 20);
  bool has_gone = false;
  symbols::CLIENT client(loop, store, symbols::DESCRIPTOR(pair[1]), [&](symbols::CLIENT& gone) {
    loop.forget(pair[1], gone);
    has_gone = true;
  });
  if (send(ours.number(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) return;
  shutdown(ours.number(), SHUT_WR);
  while (!has_gone) loop.turn(std::chrono::milliseconds(0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<char const*>(data), size);
  say_to_server(bytes);
  if (symbols::is_whole_answer(bytes))
    for (const std::size_t room : {std::size_t{0}, size / 2, size})
      if (!symbols::is_whole_answer(symbols::first_frames(bytes, room))) std::abort();
  return 0;
}
