// Reading the sources of a batch's runs ahead of the runs: while some runs copy their profiles,
// the next profiles in line are walked through the read-ahead port, so that the disk brings in
// many files at once and a run finds most of its profile in the system's cache. The window of
// profiles read ahead moves with the runs started, so the cache holds little more than the next
// few profiles; a profile whose run has already started is not read ahead.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ports/read_ahead.h"

namespace tw::batch {

class ReadAheadQueue {
 public:
  // Reads sources (Windows-form paths, in the order their runs will start) ahead: up to `window`
  // profiles beyond the runs started, `walks` of them at once.
  ReadAheadQueue(ReadAheadPort& port, std::vector<std::wstring> sources, std::size_t window,
                 unsigned walks);
  ReadAheadQueue(const ReadAheadQueue&) = delete;
  ReadAheadQueue& operator=(const ReadAheadQueue&) = delete;
  // Stops the walks at their next entry and waits for them.
  ~ReadAheadQueue();

  // The run of the next source in line has started: the window moves on by one.
  void RunStarted();

 private:
  void Work();

  ReadAheadPort& port_;
  const std::vector<std::wstring> sources_;
  const std::size_t window_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t next_ = 0;     // the next source to read ahead
  std::size_t started_ = 0;  // runs started
  std::atomic<bool> stopping_{false};
  std::vector<std::thread> walks_;
};

}  // namespace tw::batch
