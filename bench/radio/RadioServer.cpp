#include "RadioServer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace bench::radio {

void RadioServer::start(std::string& error) {
  mListener.emplace();
  if (!mListener->error().empty()) {
    error = "cannot listen on 127.0.0.1: " + mListener->error();
    return;
  }
  mThread = std::thread([this] { run(); });
}

void RadioServer::stop() {
  {
    std::lock_guard<std::mutex> lock(mConnectionMutex);
    mStopping = true;
    if (mListener) {
      mListener->shutdown();  // ends accept()
    }
    if (mConnection >= 0) {
      shutdown(mConnection, SHUT_RDWR);  // ends a send or the wait before a reset
    }
  }
  if (mThread.joinable()) {
    mThread.join();
  }
  mListener.reset();
}

void RadioServer::run() {
  std::unique_lock<std::timed_mutex> between(mBetween);
  for (;;) {
    int const connection = mListener->accept();
    if (connection < 0) {
      return;
    }
    {
      std::lock_guard<std::mutex> lock(mConnectionMutex);
      if (mStopping) {
        close(connection);
        return;
      }
      mConnection = connection;
    }
    timeval const timeout{kSocketTimeoutS, 0};
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    // The headers a radio station sends, as many stations send them.
    static char const kAnswer[] =
        "HTTP/1.0 200 OK\r\n"
        "Content-Type: audio/mpeg\r\n"
        "icy-br: 128\r\n"
        "icy-description: A day of generated music, dropped every ten minutes\r\n"
        "icy-genre: Test\r\n"
        "icy-name: oruplay radio benchmark\r\n"
        "icy-pub: 0\r\n"
        "icy-url: http://127.0.0.1/\r\n"
        "icy-metaint: 8192\r\n"
        "\r\n";
    static_assert(kMetaInt == 8192, "the answer announces kMetaInt");
    bool const answered =
        readRequest(connection) && sendAll(connection, kAnswer, sizeof kAnswer - 1);
    if (answered) {
      ++connections;
      between.unlock();
    }
    bool const dropped = answered && stream(connection);
    if (answered) {
      between.lock();
    }
    if (dropped) {
      ++dropsAt[static_cast<size_t>((drops + 1) % kDropPlaces)];
      ++drops;
      if (drops % 2 == 0) {
        reset(connection);
      }
    }
    std::lock_guard<std::mutex> lock(mConnectionMutex);
    endedByPlayer += !dropped && !mStopping ? 1 : 0;
    close(connection);
    mConnection = -1;
  }
}

bool RadioServer::readRequest(int connection) {
  char request[4096];
  size_t size = 0;
  while (size + 1 < sizeof request) {
    ssize_t const got = recv(connection, request + size, sizeof request - 1 - size, 0);
    if (got <= 0) {
      return false;
    }
    size += static_cast<size_t>(got);
    request[size] = '\0';
    if (std::strstr(request, "\r\n\r\n") != nullptr) {
      return true;
    }
  }
  return false;
}

bool RadioServer::sendAll(int connection, void const* data, size_t size) {
  auto const* bytes = static_cast<char const*>(data);
  while (size > 0) {
    ssize_t const sent = send(connection, bytes, size, MSG_NOSIGNAL);
    if (sent <= 0) {
      return false;
    }
    bytes += sent;
    size -= static_cast<size_t>(sent);
  }
  return true;
}

bool RadioServer::stream(int connection) {
  std::vector<uint8_t> const& loop = mLoop.bytes();
  int64_t const loopSize = static_cast<int64_t>(loop.size());
  int64_t live = livePoint;
  int64_t const mark = ((live + kMetaInt) / kDropBytes + 1) * kDropBytes;
  auto const place = static_cast<DropPlace>((drops + 1) % kDropPlaces);
  int64_t const dropAt =
      place == kBetweenBlocks ? mark : live + (mark - live) / kMetaInt * kMetaInt;
  int64_t sinceBlock = 0;
  int lastTitle = 0;
  while (live < dropAt) {
    // Audio up to the next ICY block or the drop point, then the block when it is due.
    int64_t const audio = std::min<int64_t>(kMetaInt - sinceBlock, dropAt - live);
    size_t size = 0;
    for (int64_t at = live; at < live + audio;) {
      int64_t const offset = at % loopSize;
      int64_t const count = std::min(live + audio - at, loopSize - offset);
      std::memcpy(mBuffer.data() + size, loop.data() + offset, static_cast<size_t>(count));
      size += static_cast<size_t>(count);
      at += count;
    }
    sinceBlock += audio;
    int title = 0;
    bool const last = live + audio == dropAt;
    if (sinceBlock == kMetaInt) {
      sinceBlock = 0;
      int const current = static_cast<int>((live + audio) / kTitleBytes) + 1;
      if (last && place == kAtBlock) {
        // the drop comes where the block's length byte is due
      } else if (last && place == kInBlock) {
        size += icyBlock(mBuffer.data() + size, current) / 2;
      } else if (current != lastTitle) {
        title = current;
        size += icyBlock(mBuffer.data() + size, current);
      } else {
        mBuffer[size++] = 0;
      }
    }
    if (!sendAll(connection, mBuffer.data(), size)) {
      return false;
    }
    live += audio;
    livePoint = live;
    if (title != 0) {
      lastTitle = title;
      titlesSent = std::max(titlesSent.load(), title);
    }
  }
  return true;
}

size_t RadioServer::icyBlock(uint8_t* out, int title) {
  char text[64] = {};
  int const length = std::snprintf(text, sizeof text, "StreamTitle='Title %d';", title);
  size_t const units = (static_cast<size_t>(length) + 15) / 16;
  out[0] = static_cast<uint8_t>(units);
  std::memcpy(out + 1, text, units * 16);
  return 1 + units * 16;
}

void RadioServer::reset(int connection) {
  int const one = 1;
  setsockopt(connection, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &one, sizeof one);
  pollfd entry{connection, POLLOUT, 0};
  if (poll(&entry, 1, static_cast<int>(kSocketTimeoutS * oru::host::kMsPerSecond)) != 1 ||
      (entry.revents & POLLOUT) == 0) {
    ++resetsEarly;
  }
  linger const abrupt{1, 0};
  setsockopt(connection, SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
  ++resets;
}

}  // namespace bench::radio
