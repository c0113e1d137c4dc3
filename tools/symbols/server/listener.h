// The socket that clients find by its path.
#pragma once

#include <sys/stat.h>

#include <string>

#include "tools/symbols/server/descriptor.h"

namespace symbols {

/// In a directory that only this user may enter, made if it is missing. What is left of a server
/// that has gone is replaced.
class LISTENER {
 public:
  /// Throws std::runtime_error, with what was tried and why it can't be.
  explicit LISTENER(const std::string& path);
  ~LISTENER() { remove(); }
  LISTENER(const LISTENER&) = delete;
  LISTENER& operator=(const LISTENER&) = delete;

  int number() const { return m_socket.number(); }
  /// Not open when nobody waits, or there is no room for another descriptor.
  DESCRIPTOR accept() const;
  /// Nobody finds it any more; those who have still can be accepted.
  void remove();
  /// Removes the socket's directory, where nothing else is in it.
  void remove_directory() const;

 private:
  void bind(const std::string& path);

  std::string m_directory_path;
  DESCRIPTOR m_directory;
  std::string m_name;
  DESCRIPTOR m_socket;
  struct stat m_bound {};
};

/// Whether the other end belongs to this process's user.
bool is_of_same_user(int socket);

}  // namespace symbols
