#include "batch/read_ahead_queue.h"

#include <algorithm>
#include <utility>

namespace tw::batch {

ReadAheadQueue::ReadAheadQueue(ReadAheadPort& port, std::vector<ReadAheadSource> sources,
                               std::size_t window, std::uint64_t budget, unsigned walks)
    : port_(port),
      sources_(std::move(sources)),
      window_(std::max<std::size_t>(window, 1)),
      budget_(budget) {
  const std::size_t count = std::min<std::size_t>(std::max(walks, 1U), sources_.size());
  walks_.reserve(count);
  for (std::size_t i = 0; i < count; ++i) walks_.emplace_back(&ReadAheadQueue::Work, this);
}

ReadAheadQueue::~ReadAheadQueue() {
  {
    const std::lock_guard<std::mutex> hold(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  for (std::thread& walk : walks_) walk.join();
}

void ReadAheadQueue::RunStarted() {
  {
    const std::lock_guard<std::mutex> hold(mutex_);
    if (started_ < next_) bytesAhead_ -= sources_[started_].bytes;  // it was read ahead
    ++started_;
  }
  changed_.notify_all();
}

bool ReadAheadQueue::MayReadNext() const {
  if (next_ >= started_ + window_) return false;
  // The very next profile is always read ahead, however large.
  return next_ == started_ || bytesAhead_ + sources_[next_].bytes <= budget_;
}

void ReadAheadQueue::Work() {
  const auto stop = [this] { return stopping_.load(); };
  std::unique_lock<std::mutex> hold(mutex_);
  for (;;) {
    next_ = std::max(next_, started_);  // a run that has started reads its profile itself
    changed_.wait(hold, [this] {
      next_ = std::max(next_, started_);
      return stopping_ || next_ >= sources_.size() || MayReadNext();
    });
    if (stopping_ || next_ >= sources_.size()) return;
    const std::size_t index = next_++;
    bytesAhead_ += sources_[index].bytes;
    hold.unlock();
    port_.ReadTreeAhead(sources_[index].path, stop);
    hold.lock();
  }
}

}  // namespace tw::batch
