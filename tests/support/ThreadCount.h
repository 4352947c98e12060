#pragma once

#include <dirent.h>

namespace oru::test {

// The threads of this process now, from /proc.
inline int threadCount() {
  int count = 0;
  if (DIR* tasks = opendir("/proc/self/task")) {
    while (dirent* entry = readdir(tasks)) {
      count += entry->d_name[0] != '.' ? 1 : 0;
    }
    closedir(tasks);
  }
  return count;
}

}  // namespace oru::test
