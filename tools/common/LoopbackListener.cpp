#include "LoopbackListener.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace oru::tools {
namespace {

constexpr int kBacklog = 8;

}  // namespace

LoopbackListener::LoopbackListener() {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  mSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (mSocket < 0 || bind(mSocket, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      listen(mSocket, kBacklog) != 0 ||
      getsockname(mSocket, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    mError = std::strerror(errno);
    return;
  }
  mPort = ntohs(address.sin_port);
}

LoopbackListener::~LoopbackListener() {
  if (mSocket >= 0) {
    close(mSocket);
  }
}

std::string LoopbackListener::url(std::string const& path) const {
  return "http://127.0.0.1:" + std::to_string(mPort) + path;
}

int LoopbackListener::accept() { return accept4(mSocket, nullptr, nullptr, SOCK_CLOEXEC); }

void LoopbackListener::shutdown() {
  if (mSocket >= 0) {
    ::shutdown(mSocket, SHUT_RDWR);
  }
}

}  // namespace oru::tools
