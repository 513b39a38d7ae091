// The Unix socket on which a recording takes requests.
#pragma once

#include <sys/stat.h>

#include <string>

#include "cli/Descriptor.h"

namespace kestro::tool {

// A listening stream socket at a path. Only the user who runs the program may connect to it.
class ControlSocket {
 public:
  // Replaces a socket on which no process listens, and no other file. Throws Error.
  explicit ControlSocket(std::string const& path);
  ~ControlSocket();  // removes the socket, unless another one has taken its place
  ControlSocket(ControlSocket const&) = delete;
  ControlSocket& operator=(ControlSocket const&) = delete;

  int Number() const { return _socket.Number(); }  // its descriptor

 private:
  std::string const _path;
  Descriptor _socket;
  struct stat _file {};
};

}  // namespace kestro::tool
