#pragma once
// Runs work later on the main thread. The application posts to the Qt event loop; tests use a
// manual scheduler and decide when queued work runs.
#include <deque>
#include <functional>
#include <memory>

namespace ombrik {

class Scheduler {
public:
  virtual ~Scheduler() = default;
  virtual void post(std::function<void()> work) = 0;
};

// Posts to the event loop of the running QCoreApplication (queued, on its thread).
std::shared_ptr<Scheduler> makeEventLoopScheduler();

class ManualScheduler final : public Scheduler {
public:
  void post(std::function<void()> work) override { queue_.push_back(std::move(work)); }
  std::size_t pending() const { return queue_.size(); }
  // Runs what is queued now, and what that queues, until nothing is left.
  void runAll() {
    while (!queue_.empty()) {
      auto work = std::move(queue_.front());
      queue_.pop_front();
      work();
    }
  }

private:
  std::deque<std::function<void()>> queue_;
};

}  // namespace ombrik
