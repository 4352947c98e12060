#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace oru::test {

// How long a test waits for something another thread should do before it fails.
constexpr std::chrono::seconds kDeadline{10};

// What happened, in order: appended from any thread, read or waited on from the test's.
template <typename Entry>
class Recorder {
 public:
  explicit Recorder(std::vector<Entry> entries = {}) : mEntries(std::move(entries)) {}
  void add(Entry entry) {
    std::lock_guard<std::mutex> lock(mMutex);
    mEntries.push_back(std::move(entry));
    mChanged.notify_all();
  }
  // Appends what `next` makes of the last entry, in one step with reading it; returns that entry.
  template <typename Next>
  Entry addFrom(Next next) {
    std::lock_guard<std::mutex> lock(mMutex);
    mEntries.push_back(next(mEntries.back()));
    mChanged.notify_all();
    return mEntries.end()[-2];
  }
  std::vector<Entry> entries() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mEntries;
  }
  // Waits until `predicate` holds for the entries; false at the deadline.
  template <typename Predicate>
  bool waitUntil(Predicate predicate, std::chrono::seconds deadline = kDeadline) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, deadline, [&] { return predicate(mEntries); });
  }

 private:
  mutable std::mutex mMutex;  // guards mEntries
  mutable std::condition_variable mChanged;
  std::vector<Entry> mEntries;
};

// A one-time event: raised on any thread, awaited with the deadline on the test's.
struct Signal : Recorder<bool> {
  void raise() { add(true); }
  bool wait() const {
    return waitUntil([](auto const& all) { return !all.empty(); });
  }
};

}  // namespace oru::test
