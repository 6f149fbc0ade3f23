#include "batch/read_ahead_queue.h"

#include <algorithm>
#include <utility>

namespace tw::batch {

ReadAheadQueue::ReadAheadQueue(ReadAheadPort& port, std::vector<std::wstring> sources,
                               std::size_t window, unsigned walks)
    : port_(port), sources_(std::move(sources)), window_(std::max<std::size_t>(window, 1)) {
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
    ++started_;
  }
  changed_.notify_all();
}

void ReadAheadQueue::Work() {
  const auto stop = [this] { return stopping_.load(); };
  std::unique_lock<std::mutex> hold(mutex_);
  for (;;) {
    next_ = std::max(next_, started_);  // a run that has started reads its profile itself
    changed_.wait(hold, [this] {
      next_ = std::max(next_, started_);
      return stopping_ || next_ >= sources_.size() || next_ < started_ + window_;
    });
    if (stopping_ || next_ >= sources_.size()) return;
    const std::size_t index = next_++;
    hold.unlock();
    port_.ReadTreeAhead(sources_[index], stop);
    hold.lock();
  }
}

}  // namespace tw::batch
