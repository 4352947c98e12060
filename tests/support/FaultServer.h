#pragma once

#include "Recorder.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>

namespace oru::test {

// An HTTP server on 127.0.0.1 that serves one body, misbehaving as its mode says. Each
// connection has a thread of its own, so that a stalled one never holds up a reconnection;
// stalls last until the server is destroyed. `requests` records each path and Range start.
class FaultServer {
 public:
  enum Mode {
    kNotFound,           // 404 to everything
    kCloseEarly,         // closes each connection without answering
    kTruncated,          // every response ends at half of the body, short of its length
    kResetOnce,          // the first response is reset at half of the body
    kStallMidStream,     // a live stream (no length) stalling at half, as do reconnections
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
        mConnections.push_back(connection);
        mThreads.emplace_back([this, connection] { serve(connection); });
      }
    });
  }
  ~FaultServer() {
    mStopping.raise();
    shutdown(mListener, SHUT_RDWR);  // ends accept()
    mAcceptor.join();
    for (size_t i = 0; i < mThreads.size(); ++i) {
      shutdown(mConnections[i], SHUT_RDWR);
      mThreads[i].join();
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
    bool const cut =
        mMode == kTruncated || mMode == kStallMidStream || (first && mMode == kResetOnce);
    std::string body = mBody.substr(from, cut ? std::max(from, mBody.size() / 2) - from : -1);
    std::string head =
        "HTTP/1.1 206 Partial Content\r\nContent-Length: " + std::to_string(mBody.size() - from) +
        "\r\nContent-Range: bytes " + std::to_string(from) + "-" +
        std::to_string(mBody.size() - 1) + "/" + std::to_string(mBody.size()) + "\r\n\r\n";
    if (mMode == kNotFound || (!first && mMode == kIcy)) {
      head = "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n";
      body.clear();
    } else if (mMode == kRedirect && path == "/a") {
      head = "HTTP/1.1 302 Found\r\nLocation: /b\r\nContent-Length: 0\r\n\r\n";
      body.clear();
    } else if (mMode == kStallMidStream && first) {
      head = "HTTP/1.0 200 OK\r\n\r\n";
    } else if (mMode == kIcy) {  // a title every 4 KiB, the first one "Song 1"
      head = "HTTP/1.0 200 OK\r\nicy-metaint: 4096\r\n\r\n";
      for (size_t at = 4096; at < body.size(); at += 4096 + 33) {
        std::string const title = "StreamTitle='Song " + std::to_string(at / 4129 + 1) + "';";
        body.insert(at, std::string(1, '\2') + title + std::string(32 - title.size(), '\0'));
      }
    }
    bool const stall = mMode == kStallBeforeAnswer || (mMode == kStallMidStream && !first);
    if (mMode != kCloseEarly && !stall) {
      send(connection, head + (mMode == kTrickle ? "" : body));
      for (size_t at = 0; mMode == kTrickle && at < body.size() && mStopping.entries().empty();
           at += 4096) {
        send(connection, body.substr(at, 4096));
        std::this_thread::sleep_for(std::chrono::milliseconds(10));  // the fault itself
      }
    }
    if (mMode == kStallMidStream || mMode == kStallBeforeAnswer) {
      mStopping.waitUntil([](auto const& all) { return !all.empty(); }, std::chrono::minutes(1));
    } else if (cut && mMode == kResetOnce) {
      linger const reset{1, 0};
      setsockopt(connection, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    }
    close(connection);
  }

  static void send(int connection, std::string const& bytes) {
    ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }

  std::string const mBody;
  Mode const mMode;
  int const mListener = socket(AF_INET, SOCK_STREAM, 0);
  int mPort = 0;
  Signal mStopping;
  std::thread mAcceptor;
  // Touched by the acceptor only, until it has ended.
  std::vector<int> mConnections;
  std::vector<std::thread> mThreads;
};

}  // namespace oru::test
