#pragma once

#include "Recorder.h"

#include <dirent.h>

#include <fstream>
#include <string>
#include <thread>

namespace oru::test {

// The engine's own threads (each named "oru-...") alive in this process now.
inline int engineThreads() {
  int count = 0;
  DIR* tasks = opendir("/proc/self/task");
  while (dirent* entry = tasks != nullptr ? readdir(tasks) : nullptr) {
    std::string name;
    std::ifstream(std::string("/proc/self/task/") + entry->d_name + "/comm") >> name;
    count += name.rfind("oru-", 0) == 0 ? 1 : 0;
  }
  closedir(tasks);
  return count;
}

// Waits until no engine thread is left; false at the deadline. A joined thread can stay listed
// for a moment after the join returned, so this polls rather than counts once.
inline bool engineThreadsEnded() {
  auto const deadline = std::chrono::steady_clock::now() + kDeadline;
  while (engineThreads() > 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return engineThreads() == 0;
}

}  // namespace oru::test
