// An HTTP server on 127.0.0.1 that serves one body as a radio does: `HTTP/1.0 200` without a
// length, a burst of its first bytes, then the rest at a steady byte rate, in pieces of 10 ms.
#pragma once

#include "LoopbackListener.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

namespace bench {

// Serves one connection at a time, on its own thread, until destroyed; the destructor ends a
// connection that is still being served.
class PacedServer {
 public:
  PacedServer(std::string body, double bytesPerSecond, size_t burst)
      : mBody(std::move(body)), mBytesPerSecond(bytesPerSecond), mBurst(burst) {
    if (!mListener.error().empty()) {
      throw std::runtime_error("PacedServer: cannot listen on 127.0.0.1");
    }
    mThread = std::thread([this] { run(); });
  }
  ~PacedServer() {
    mStopping = true;
    mListener.shutdown();
    mThread.join();
  }
  PacedServer(PacedServer const&) = delete;
  PacedServer& operator=(PacedServer const&) = delete;

  std::string url(std::string const& name) const { return mListener.url("/" + name); }

 private:
  void run() {
    for (int connection; (connection = mListener.accept()) >= 0;) {
      serve(connection);
      close(connection);
    }
  }

  void serve(int connection) {
    char request[4096];
    if (recv(connection, request, sizeof request, 0) <= 0) {
      return;
    }
    auto const start = std::chrono::steady_clock::now();
    std::string const head = "HTTP/1.0 200 OK\r\nContent-Type: application/octet-stream\r\n\r\n";
    size_t sent = std::min(mBurst, mBody.size());
    if (!send(connection, head + mBody.substr(0, sent))) {
      return;
    }
    auto const piece = static_cast<size_t>(mBytesPerSecond / 100);
    while (sent < mBody.size() && !mStopping) {
      // The bytes after the burst leave at the stream's own rate, counted from the request.
      std::this_thread::sleep_until(
          start + std::chrono::duration<double>((sent - mBurst + piece) / mBytesPerSecond));
      if (!send(connection, mBody.substr(sent, piece))) {
        return;
      }
      sent += piece;
    }
  }

  static bool send(int connection, std::string const& bytes) {
    return ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
  }

  std::string const mBody;
  double const mBytesPerSecond;
  size_t const mBurst;
  oru::tools::LoopbackListener mListener;
  std::atomic<bool> mStopping{false};
  std::thread mThread;
};

}  // namespace bench
