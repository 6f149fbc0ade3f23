// Reading the sources of a batch's runs ahead of the runs: while some runs copy their profiles,
// the next profiles in line are walked through the read-ahead port, so that the disk brings in
// many files at once and a run finds most of its profile in the system's cache. The window of
// profiles read ahead moves with the runs started, so the cache holds little more than the next
// few profiles: at most `window` profiles and, beyond the very next one, at most `budget` bytes
// (by the survey's sizes) read ahead and not yet started, so that a large profile next in line
// does not push what was read for the others out of the cache. A profile whose run has already
// started is not read ahead.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ports/read_ahead.h"

namespace tw::batch {

// A profile to read ahead: its folder (Windows-form path) and its size in bytes.
struct ReadAheadSource {
  std::wstring path;
  std::uint64_t bytes = 0;
};

class ReadAheadQueue {
 public:
  // Reads sources (in the order their runs will start) ahead: up to `window` profiles and
  // `budget` bytes beyond the runs started, `walks` of them at once.
  ReadAheadQueue(ReadAheadPort& port, std::vector<ReadAheadSource> sources, std::size_t window,
                 std::uint64_t budget, unsigned walks);
  ReadAheadQueue(const ReadAheadQueue&) = delete;
  ReadAheadQueue& operator=(const ReadAheadQueue&) = delete;
  // Stops the walks at their next entry and waits for them.
  ~ReadAheadQueue();

  // The run of the next source in line has started: the window moves on by one.
  void RunStarted();

 private:
  void Work();
  // Whether the walk of the next source may start (mutex_ held).
  bool MayReadNext() const;

  ReadAheadPort& port_;
  const std::vector<ReadAheadSource> sources_;
  const std::size_t window_;
  const std::uint64_t budget_;
  std::uint64_t bytesAhead_ = 0;  // of the sources read ahead whose runs have not started
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t next_ = 0;     // the next source to read ahead
  std::size_t started_ = 0;  // runs started
  std::atomic<bool> stopping_{false};
  std::vector<std::thread> walks_;
};

}  // namespace tw::batch
