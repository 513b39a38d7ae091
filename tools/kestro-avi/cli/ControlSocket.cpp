#include "cli/ControlSocket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

#include "cli/Errors.h"

namespace kestro::tool {

namespace {

constexpr int kBacklog = 8;

Error Failure(std::string const& path, int code) {
  return {kIo, path + ": " + std::strerror(code)};
}

// Keeps other recorders from checking and replacing sockets of this folder at the same time.
Descriptor LockFolder(std::filesystem::path const& path) {
  std::filesystem::path const folder = path.has_parent_path() ? path.parent_path() : ".";
  Descriptor lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (lock.Number() < 0) throw Failure(folder, errno);
  // They hold it for a moment only. Go on when another program keeps it.
  for (int i = 0; i < 50 && flock(lock.Number(), LOCK_EX | LOCK_NB) != 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  return lock;
}

Descriptor NewSocket() {
  Descriptor created(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (created.Number() < 0) throw Failure("socket", errno);
  return created;
}

template <class Call>
int With(sockaddr_un const& address, Call call, int socket) {
  return call(socket, reinterpret_cast<sockaddr const*>(&address), socklen_t{sizeof address});
}

void RemoveStale(std::string const& path, sockaddr_un const& address) {
  struct stat file {};
  if (lstat(path.c_str(), &file) != 0) return;
  if (!S_ISSOCK(file.st_mode)) throw Error(kIo, path + ": exists and is not a socket");
  int const failed = With(address, connect, NewSocket().Number()) == 0 ? 0 : errno;
  if (failed == 0 || failed == EAGAIN)
    throw Error(kIo, path + ": another recorder listens on this socket");
  if (failed != ECONNREFUSED) throw Failure(path, failed);
  unlink(path.c_str());
}

}  // namespace

ControlSocket::ControlSocket(std::string const& path) : _path(path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path)
    throw Error(kUsage, path + ": the path of a socket has at most " +
                            std::to_string(sizeof address.sun_path - 1) + " bytes");
  std::memcpy(address.sun_path, path.c_str(), path.size());
  Descriptor const lock = LockFolder(path);
  RemoveStale(path, address);
  _socket = NewSocket();
  // The file gets the mode of the socket, and nobody can connect before listen.
  if (fchmod(_socket.Number(), 0600) != 0 || With(address, bind, _socket.Number()) != 0)
    throw Failure(path, errno);
  if (lstat(path.c_str(), &_file) == 0 && listen(_socket.Number(), kBacklog) == 0) return;
  int const failed = errno;
  unlink(path.c_str());
  throw Failure(path, failed);
}

ControlSocket::~ControlSocket() {
  struct stat now {};
  if (lstat(_path.c_str(), &now) == 0 && now.st_dev == _file.st_dev && now.st_ino == _file.st_ino)
    unlink(_path.c_str());
}

}  // namespace kestro::tool
