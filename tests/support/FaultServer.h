#pragma once

#include "LoopbackListener.h"
#include "Recorder.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
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
    // Each of these stalls at half of the body with its length announced, then answers a
    // reconnection from there...
    kStallThenWhole,       // ...with 200 and the whole body, ignoring the range
    kStallThenWrongRange,  // ...with 206 from a quarter of the body
    kStallThenResendHalf,  // ...as the first time, for ever
    kLiveCloses,  // an ICY radio (no length) closing cleanly where its tenth title would come;
                  // each connection goes on at the live point; after the body, 404
  };
  FaultServer(std::string body, Mode mode) : mBody(std::move(body)), mMode(mode) {
    EXPECT_EQ(mListener.error(), "");
    mAcceptor = std::thread([this] {
      for (int connection; (connection = mListener.accept()) >= 0;) {
        mConnections.push_back(connection);
        mThreads.emplace_back([this, connection] { serve(connection); });
      }
    });
  }
  ~FaultServer() {
    mStopping.raise();
    mListener.shutdown();  // ends accept()
    mAcceptor.join();
    for (size_t i = 0; i < mThreads.size(); ++i) {
      shutdown(mConnections[i], SHUT_RDWR);
      mThreads[i].join();
    }
  }

  std::string url() const { return mListener.url("/a"); }

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
    size_t const size = mBody.size();
    size_t const half = size / 2;
    // The bytes [start, end) of the body follow the head; a stall keeps the connection open.
    size_t start = from;
    size_t end = size;
    std::string status = "206 Partial Content";
    std::string headers;  // beyond the default Content-Length and Content-Range
    bool stall = false;
    bool const stallAtHalf = mMode >= kStallThenWhole && mMode <= kStallThenResendHalf;
    if (mMode == kNotFound || (!first && mMode == kIcy) ||
        (mMode == kLiveCloses && mLivePoint >= size)) {
      status = "404 Not Found";
      end = start;
    } else if (mMode == kRedirect && path == "/a") {
      status = "302 Found";
      headers = "Location: /b\r\n";
      end = start;
    } else if (mMode == kTruncated || (first && mMode == kResetOnce)) {
      end = std::max(from, half);
    } else if (mMode == kStallMidStream || mMode == kStallBeforeAnswer) {
      stall = true;
      end = first && mMode == kStallMidStream ? half : start;
    } else if (stallAtHalf && (first || mMode == kStallThenResendHalf)) {
      status = "200 OK";
      start = 0;
      end = half;
      stall = true;
    } else if (mMode == kStallThenWhole) {
      status = "200 OK";
      start = 0;
    } else if (mMode == kStallThenWrongRange) {
      start = size / 4;
    } else if (mMode == kLiveCloses) {
      start = mLivePoint;
      end = mLivePoint = std::min(size, mLivePoint + 10 * 4096);
    }
    std::string body = mBody.substr(start, end - start);
    bool const live = mMode == kIcy || mMode == kLiveCloses || (first && mMode == kStallMidStream);
    if (live && status != "404 Not Found") {  // a title every 4 KiB: "Song 1", "Song 2"...
      status = "200 OK";
      headers = "icy-metaint: 4096\r\n";
      for (size_t at = 4096; at < body.size(); at += 4096 + 33) {
        std::string const title = "StreamTitle='Song " + std::to_string(++mSongs) + "';";
        body.insert(at, std::string(1, '\2') + title + std::string(32 - title.size(), '\0'));
      }
    } else if (status[0] == '2') {
      headers += "Content-Length: " + std::to_string(size - start) + "\r\n";
    } else {
      headers += "Content-Length: 0\r\n";
    }
    if (status[1] == '0' && status[2] == '6') {
      headers += "Content-Range: bytes " + std::to_string(start) + "-" + std::to_string(size - 1) +
                 "/" + std::to_string(size) + "\r\n";
    }
    if (mMode != kCloseEarly && !(stall && end == start)) {
      send(connection, "HTTP/1." + std::string(live ? "0 " : "1 ") + status + "\r\n" + headers +
                           "\r\n" + (mMode == kTrickle ? "" : body));
      for (size_t at = 0; mMode == kTrickle && at < body.size() && mStopping.entries().empty();
           at += 4096) {
        send(connection, body.substr(at, 4096));
        std::this_thread::sleep_for(std::chrono::milliseconds(10));  // the fault itself
      }
    }
    if (stall) {
      mStopping.waitUntil([](auto const& all) { return !all.empty(); }, std::chrono::minutes(1));
    } else if (first && mMode == kResetOnce) {
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
  tools::LoopbackListener mListener;
  Signal mStopping;
  // Live connections follow each other; atomic, since only the network orders them.
  std::atomic<size_t> mLivePoint = 0;
  std::atomic<int> mSongs = 0;
  std::thread mAcceptor;
  // Touched by the acceptor only, until it has ended.
  std::vector<int> mConnections;
  std::vector<std::thread> mThreads;
};

}  // namespace oru::test
