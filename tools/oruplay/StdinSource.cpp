#include "StdinSource.h"

#include <oru/AudioPlayer.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace oruplay {

using Resource = oru::AudioPlayer::Resource;

StdinSource::StdinSource() {
  if (pipe(mCancelPipe) != 0) {
    mCancelPipe[0] = mCancelPipe[1] = -1;
  }
}

StdinSource::~StdinSource() {
  for (int fd : mCancelPipe) {
    if (fd >= 0) {
      close(fd);
    }
  }
}

int StdinSource::read(void* opaque, uint8_t* buffer, int size) {
  auto* source = static_cast<StdinSource*>(opaque);
  pollfd fds[] = {{STDIN_FILENO, POLLIN, 0}, {source->mCancelPipe[0], POLLIN, 0}};
  for (;;) {
    int const ready = poll(fds, 2, -1);
    if (ready < 0 && errno == EINTR) {
      continue;
    }
    if (ready < 0 || (fds[1].revents & POLLIN) != 0) {
      return Resource::kAborted;
    }
    ssize_t const got = ::read(STDIN_FILENO, buffer, static_cast<size_t>(size));
    if (got < 0 && errno == EINTR) {
      continue;
    }
    return got > 0 ? static_cast<int>(got) : Resource::kEndOfData;
  }
}

void StdinSource::cancel(void* opaque) {
  auto* source = static_cast<StdinSource*>(opaque);
  if (source->mCancelPipe[1] >= 0) {
    char const wake = 1;
    [[maybe_unused]] ssize_t const written = ::write(source->mCancelPipe[1], &wake, 1);
  }
}

}  // namespace oruplay
