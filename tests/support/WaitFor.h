#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace oru::test {

// How long a test waits for something another thread should do before it fails.
constexpr std::chrono::seconds kDeadline{10};

// Waits on `condition` until `predicate` holds or the deadline passes; returns the predicate.
template <typename Predicate>
bool waitFor(std::unique_lock<std::mutex>& lock, std::condition_variable& condition,
             Predicate predicate, std::chrono::milliseconds deadline = kDeadline) {
  return condition.wait_for(lock, deadline, predicate);
}

}  // namespace oru::test
