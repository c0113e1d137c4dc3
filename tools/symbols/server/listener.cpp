#include "tools/symbols/server/listener.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace symbols {

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& why) {
  throw std::runtime_error("cannot listen on " + path + ": " + why);
}

[[noreturn]] void fail_with_errno(const std::string& path) { fail(path, std::strerror(errno)); }

DESCRIPTOR private_directory(const std::string& path, const std::string& directory) {
  if (mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) fail_with_errno(path);
  DESCRIPTOR opened(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat status {};
  if (!opened.is_open() || fstat(opened.number(), &status) != 0) fail_with_errno(path);
  if (status.st_uid != geteuid()) fail(path, "the directory belongs to another user");
  if ((status.st_mode & 077) != 0) fail(path, "others may enter the directory (chmod 700 it)");
  return opened;
}

// By the directory's descriptor: its own path may be longer than an address takes.
sockaddr_un address_of(int directory, const std::string& name, const std::string& path) {
  const std::string text = "/proc/self/fd/" + std::to_string(directory) + "/" + name;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (text.size() >= sizeof address.sun_path) fail(path, "the name is too long");
  std::memcpy(address.sun_path, text.c_str(), text.size() + 1);
  return address;
}

DESCRIPTOR new_socket(int flags) {
  return DESCRIPTOR(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

bool somebody_answers(const sockaddr_un& address) {
  const DESCRIPTOR caller = new_socket(SOCK_NONBLOCK);
  return connect(caller.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
             0 ||
         errno == EAGAIN;
}

}  // namespace

LISTENER::LISTENER(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  m_name = path.substr(slash + 1);  // npos is the number before 0
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  if (m_name.empty()) fail(path, "this names a directory");
  m_directory = private_directory(path, directory);
  std::error_code trouble;
  m_directory_path = std::filesystem::absolute(directory, trouble).string();
  bind(path);
}

// Two servers that start at once look at the leavings of a third in turn.
void LISTENER::bind(const std::string& path) {
  const sockaddr_un address = address_of(m_directory.number(), m_name, path);
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  flock(m_directory.number(), LOCK_EX);
  struct stat former {};
  if (fstatat(m_directory.number(), m_name.c_str(), &former, AT_SYMLINK_NOFOLLOW) == 0) {
    if (!S_ISSOCK(former.st_mode)) fail(path, "there is a file that is no socket");
    if (somebody_answers(address)) fail(path, "a server answers there already");
    unlinkat(m_directory.number(), m_name.c_str(), 0);
  }
  m_socket = new_socket(SOCK_NONBLOCK);
  if (::bind(m_socket.number(), generic, sizeof address) != 0 ||
      listen(m_socket.number(), SOMAXCONN) != 0)
    fail_with_errno(path);
  fstatat(m_directory.number(), m_name.c_str(), &m_bound, AT_SYMLINK_NOFOLLOW);
  flock(m_directory.number(), LOCK_UN);
}

DESCRIPTOR LISTENER::accept() const {
  return DESCRIPTOR(accept4(m_socket.number(), nullptr, nullptr, SOCK_CLOEXEC));
}

void LISTENER::remove() {
  struct stat now {};
  const bool is_ours =
      fstatat(m_directory.number(), m_name.c_str(), &now, AT_SYMLINK_NOFOLLOW) == 0 &&
      now.st_dev == m_bound.st_dev && now.st_ino == m_bound.st_ino;
  if (is_ours) unlinkat(m_directory.number(), m_name.c_str(), 0);
}

void LISTENER::remove_directory() const { rmdir(m_directory_path.c_str()); }

bool is_of_same_user(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == geteuid();
}

}  // namespace symbols
