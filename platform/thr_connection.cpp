#include "platform/thr_connection.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string_view>

#include "platform/raw_syscall.h"
#include "platform/thr_command.h"
#include "platform/thr_descriptor.h"
#include "platform/thr_room.h"

namespace {

int start(char const* command, int input, THR_KEEPER& keeper) {
  THR_ROOM room(thr_room_for_command(command) + thr_room_for_start);
  THR_START start{.directory = ".", .input = input};
  if (!room.exists()) return ENOMEM;
  if (!thr_read_command(command, room, start.command)) return ENOENT;
  return thr_start_hidden_child(start, room, keeper);
}

// Whoever may enter the directory could put a socket of his own in the place of this one.
bool is_in_own_directory(std::string_view path) {
  char directory[sizeof sockaddr_un::sun_path] = ".";
  const std::size_t slash = path.rfind('/');
  if (slash != std::string_view::npos) directory[path.copy(directory, slash + 1)] = '\0';
  struct stat found;
  constexpr mode_t others = S_IRWXG | S_IRWXO;
  return thr_raw_syscall(SYS_stat, directory, &found) == 0 && S_ISDIR(found.st_mode) &&
         found.st_uid == geteuid() && (found.st_mode & others) == 0;
}

bool is_of_own_user(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return thr_raw_syscall(SYS_getsockopt, socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
         peer.uid == geteuid();
}

// A server to which many connect in the same moment has its queue full for as long.
int connect_patiently(int socket, const sockaddr_un& address) {
  constexpr int attempts = 100;
  constexpr timespec a_moment{.tv_sec = 0, .tv_nsec = 10'000'000};
  long answer = -EAGAIN;
  for (int i = 0; i < attempts && (answer == -EAGAIN || answer == -EINTR); ++i) {
    if (i > 0) thr_raw_syscall(SYS_nanosleep, &a_moment, nullptr);
    answer = thr_raw_syscall(SYS_connect, socket, &address, sizeof address);
  }
  return answer == -EAGAIN ? ETIMEDOUT : static_cast<int>(-answer);
}

}  // namespace

int thr_connect_to_program(char const* command, THR_CONNECTION& connection) {
  int ends[2];
  const long answer = thr_raw_syscall(SYS_socketpair, AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
  if (answer != 0) return static_cast<int>(-answer);
  connection.socket = thr_take_descriptor(ends[0]);
  const int error = connection.socket < 0 ? EMFILE : start(command, ends[1], connection.keeper);
  thr_raw_syscall(SYS_close, ends[1]);
  if (error != 0) thr_disconnect(connection);
  return error;
}

int thr_connect_to_socket(char const* path, THR_CONNECTION& connection) {
  const std::string_view place(path);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  if (place.size() >= sizeof address.sun_path) return ENAMETOOLONG;
  place.copy(address.sun_path, place.size());
  if (thr_raw_syscall(SYS_access, path, F_OK) != 0) return ENOENT;
  if (!is_in_own_directory(place)) return EACCES;
  const long fresh =
      thr_raw_syscall(SYS_socket, AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fresh < 0) return static_cast<int>(-fresh);
  connection.socket = thr_take_descriptor(static_cast<int>(fresh));
  if (connection.socket < 0) return EMFILE;
  int error = connect_patiently(connection.socket, address);
  if (error == 0 && !is_of_own_user(connection.socket)) error = EPERM;
  if (error != 0) thr_disconnect(connection);
  return error;
}

long thr_send(int socket, void const* bytes, std::size_t size, int descriptor) {
  if (thr_descriptor_is_lost(socket)) return -EBADF;
  iovec piece{.iov_base = const_cast<void*>(bytes), .iov_len = size};
  alignas(cmsghdr) unsigned char beside[CMSG_SPACE(sizeof descriptor)] = {};
  msghdr message{};
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  if (descriptor >= 0) {
    message.msg_control = beside;
    message.msg_controllen = sizeof beside;
    cmsghdr* const rights = CMSG_FIRSTHDR(&message);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(rights), &descriptor, sizeof descriptor);
  }
  return thr_raw_syscall(SYS_sendmsg, socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

long thr_receive(int socket, void* bytes, std::size_t size) {
  if (thr_descriptor_is_lost(socket)) return -EBADF;
  iovec piece{.iov_base = bytes, .iov_len = size};
  msghdr message{};
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  return thr_raw_syscall(SYS_recvmsg, socket, &message, MSG_DONTWAIT);
}

void thr_hang_up(int socket) {
  if (!thr_descriptor_is_lost(socket)) thr_raw_syscall(SYS_shutdown, socket, SHUT_RDWR);
}

void thr_disconnect(THR_CONNECTION& connection) {
  if (connection.socket >= 0) thr_give_up_descriptor(connection.socket);
  thr_reap_keeper(connection.keeper);
  connection = {};
}
