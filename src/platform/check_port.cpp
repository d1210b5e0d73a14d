#include "platform/check_port.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/unique_fd.h"

int CheckPort(int port, int protocol) {
  if (port <= 0 || port > 65535) return -1;
  if (protocol != 1) return port;
  OxBase::UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.valid()) return -1;
  // Without SO_REUSEADDR a port held by any socket, listening or in
  // TIME_WAIT, is reported as unusable, which is what a service about to
  // listen on it would meet.
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_ANY);
  addr.sin_port = htons(static_cast<uint16_t>(port));
  bool ok = ::bind(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 && ::listen(fd.get(), 1) == 0;
  return ok ? port : -1;
}
