#include "ProcessSample.h"

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

namespace bench::radio {
namespace {

// The value in kB of a "Name:  N kB" line of /proc/self/status; -1 when missing.
long statusKiB(char const* name) {
  char text[4096] = {};
  int const fd = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    ssize_t const got = read(fd, text, sizeof text - 1);
    text[got > 0 ? got : 0] = '\0';
    close(fd);
  }
  char const* line = std::strstr(text, name);
  return line != nullptr ? std::atol(line + std::strlen(name)) : -1;
}

// Entries of a /proc directory, less the directory's own descriptor for /proc/self/fd.
int entries(char const* path) {
  DIR* directory = opendir(path);
  if (directory == nullptr) {
    return -1;
  }
  int count = 0;
  for (dirent* entry; (entry = readdir(directory)) != nullptr;) {
    count += entry->d_name[0] != '.' ? 1 : 0;
  }
  closedir(directory);
  return count - (std::strcmp(path, "/proc/self/fd") == 0 ? 1 : 0);
}

}  // namespace

Sample sample(int64_t frames, double wallS, RadioServer* server) {
  std::unique_lock<std::timed_mutex> between;
  if (server != nullptr) {
    between = std::unique_lock<std::timed_mutex>(server->betweenConnections(), kSettleWait);
  }
  Sample taken;
  taken.frames = frames;
  taken.wallS = wallS;
  taken.residentKiB = statusKiB("VmRSS:");
  taken.peakKiB = statusKiB("VmHWM:");
  struct mallinfo2 const heap = mallinfo2();
  taken.heapBytes = heap.uordblks + heap.hblkhd;
  taken.threads = entries("/proc/self/task");
  taken.fds = entries("/proc/self/fd");
  taken.settled = server == nullptr || between.owns_lock();
  return taken;
}

}  // namespace bench::radio
