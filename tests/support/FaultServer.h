#pragma once

#include "Recorder.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>

namespace oru::test {

// An HTTP server on 127.0.0.1 that serves one body at /a, misbehaving as its mode says. Each
// connection has a thread of its own, so that a stalled one never holds up a reconnection;
// stalls last until the server is destroyed, which closes every connection and joins.
// `requests` records each request's path and Range start ("/a 0", "/a 1200").
class FaultServer {
 public:
  enum Mode {
    kNotFound,           // 404 to everything
    kCloseEarly,         // closes each connection without answering
    kTruncated,          // every response ends at half of the body, short of its length
    kResetOnce,          // the first response is reset at half of the body
    kStallMidStream,     // a live stream (no length) that stalls at half, as do reconnections
    kStallBeforeAnswer,  // reads the request and never answers
    kTrickle,            // the body in small pieces
    kRedirect,           // /a answers 302 to /b, which serves the body
    kIcy,                // a radio stream with ICY titles, once; later requests get 404
  };

  FaultServer(std::string body, Mode mode) : mBody(std::move(body)), mMode(mode) {
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof address;
    EXPECT_TRUE(bind(mListener, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
                listen(mListener, 8) == 0 &&
                getsockname(mListener, reinterpret_cast<sockaddr*>(&address), &length) == 0);
    mPort = ntohs(address.sin_port);
    mAcceptor = std::thread([this] {
      for (int connection; (connection = accept(mListener, nullptr, nullptr)) >= 0;) {
        std::lock_guard<std::mutex> lock(mMutex);
        mConnections.push_back(connection);
        mThreads.emplace_back([this, connection] { serve(connection); });
      }
    });
  }
  ~FaultServer() {
    stopping.raise();
    shutdown(mListener, SHUT_RDWR);  // ends accept()
    mAcceptor.join();
    for (int connection : mConnections) {
      shutdown(connection, SHUT_RDWR);
    }
    for (std::thread& thread : mThreads) {
      thread.join();
    }
    close(mListener);
  }

  std::string url() const { return "http://127.0.0.1:" + std::to_string(mPort) + "/a"; }

  Recorder<std::string> requests;

 private:
  void serve(int connection) {
    std::string request;
    char bytes[1024];
    for (ssize_t got; request.find("\r\n\r\n") == std::string::npos &&
                      (got = recv(connection, bytes, sizeof bytes, 0)) > 0;) {
      request.append(bytes, static_cast<size_t>(got));
    }
    size_t const range = request.find("Range: bytes=");
    size_t const from = range == std::string::npos ? 0 : std::stoul(request.substr(range + 13));
    std::string const path = request.size() > 4 ? request.substr(4, request.find(' ', 4) - 4) : "";
    bool const first = requests.entries().empty();
    requests.add(path + " " + std::to_string(from));
    size_t const half = mBody.size() / 2;
    bool const cut =
        mMode == kTruncated || mMode == kStallMidStream || (first && mMode == kResetOnce);
    std::string const body =
        mBody.substr(from, cut ? std::max(from, half) - from : std::string::npos);
    bool const stall = mMode == kStallBeforeAnswer || (mMode == kStallMidStream && !first);
    if (mMode == kNotFound || (mMode == kIcy && !first)) {
      send(connection, "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
    } else if (mMode == kRedirect && path == "/a") {
      send(connection, "HTTP/1.1 302 Found\r\nLocation: /b\r\nContent-Length: 0\r\n\r\n");
    } else if (mMode == kIcy) {
      sendIcy(connection);
    } else if (mMode == kStallMidStream && first) {
      send(connection, "HTTP/1.0 200 OK\r\n\r\n" + body);
    } else if (mMode != kCloseEarly && !stall) {
      send(connection, "HTTP/1.1 206 Partial Content\r\nContent-Length: " +
                           std::to_string(mBody.size() - from) + "\r\nContent-Range: bytes " +
                           std::to_string(from) + "-" + std::to_string(mBody.size() - 1) + "/" +
                           std::to_string(mBody.size()) + "\r\n\r\n");
      size_t const piece = mMode == kTrickle ? 4096 : body.size();
      for (size_t at = 0; at < body.size() && stopping.entries().empty(); at += piece) {
        send(connection, body.substr(at, piece));
        if (mMode == kTrickle) {
          std::this_thread::sleep_for(std::chrono::milliseconds(10));  // the fault itself
        }
      }
    }
    if (stall || mMode == kStallMidStream) {
      stopping.waitUntil([](auto const& all) { return !all.empty(); }, std::chrono::minutes(1));
    } else if (cut && mMode == kResetOnce) {
      linger const reset{1, 0};
      setsockopt(connection, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    }
    close(connection);
  }

  // The body as a radio sends it: a title every 4 KiB, the first one "Song 1".
  void sendIcy(int connection) {
    constexpr size_t kMetaInterval = 4096;
    send(connection,
         "HTTP/1.0 200 OK\r\nicy-metaint: " + std::to_string(kMetaInterval) + "\r\n\r\n");
    for (size_t at = 0; at < mBody.size(); at += kMetaInterval) {
      std::string text = "StreamTitle='Song " + std::to_string(at / kMetaInterval + 1) + "';";
      text.resize((text.size() + 15) / 16 * 16, '\0');
      send(connection,
           mBody.substr(at, kMetaInterval) + static_cast<char>(text.size() / 16) + text);
    }
  }

  static void send(int connection, std::string const& bytes) {
    ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }

  std::string const mBody;
  Mode const mMode;
  int const mListener = socket(AF_INET, SOCK_STREAM, 0);
  int mPort = 0;
  Signal stopping;
  std::thread mAcceptor;
  std::mutex mMutex;  // guards the two lists until the acceptor has ended
  std::vector<int> mConnections;
  std::vector<std::thread> mThreads;
};

}  // namespace oru::test
