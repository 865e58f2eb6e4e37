#pragma once
// Runs work later on the main thread. The application posts to the Qt event loop; tests use a
// manual scheduler with its own clock and decide when queued work runs.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace ombrik {

class Scheduler {
public:
  using Token = std::uint64_t;
  virtual ~Scheduler() = default;
  // Runs `work` after `seconds` (0: as soon as the loop is free). The token cancels it.
  virtual Token postAfter(double seconds, std::function<void()> work) = 0;
  virtual void cancel(Token token) = 0;
  Token post(std::function<void()> work) { return postAfter(0, std::move(work)); }
  // Runs `work` every `seconds` until the token is cancelled. One timer for the whole run, so a
  // steady loop (the idle pump, the play clock) allocates nothing per tick.
  virtual Token every(double seconds, std::function<void()> work) = 0;
  // Seconds on a steady clock; the manual scheduler's own clock in tests.
  virtual double now() const = 0;
  // Work handed over by a background thread (a decoder, a worker): safe from any thread, runs
  // on the main thread as soon as it is free, and cannot be cancelled.
  virtual void postFromThread(std::function<void()> work) = 0;
};

// Posts to the event loop of the running QCoreApplication (queued, on its thread).
std::shared_ptr<Scheduler> makeEventLoopScheduler();

class ManualScheduler final : public Scheduler {
public:
  Token postAfter(double seconds, std::function<void()> work) override {
    const Token t = ++next_;
    queue_.emplace(t, Item{now_ + std::max(0.0, seconds), 0, std::move(work), seconds <= 0});
    return t;
  }
  Token every(double seconds, std::function<void()> work) override {
    const Token t = ++next_;
    const double period = std::max(kShortestPeriod, seconds);
    queue_.emplace(t, Item{now_ + period, period, std::move(work), false});
    return t;
  }
  void cancel(Token token) override {
    if (token == running_) runningCancelled_ = true;
    queue_.erase(token);
  }
  void postFromThread(std::function<void()> work) override {
    {
      std::lock_guard g(inboxLock_);
      inbox_.push_back(std::move(work));
    }
    inboxSignal_.notify_all();
  }
  // Blocks until a background thread has handed over work, or `seconds` have passed; true if
  // work is waiting. The clock doesn't move: this is real time spent by other threads.
  bool waitForThreads(double seconds) {
    std::unique_lock g(inboxLock_);
    return inboxSignal_.wait_for(g, std::chrono::duration<double>(seconds), [&] { return !inbox_.empty(); });
  }
  std::size_t pending() const { return queue_.size(); }
  double now() const override { return now_; }
  // Runs what is due now, and what that makes due, until nothing due is left.
  void runAll() { advance(0); }
  // Moves the clock on, running work as it falls due, in order of time then of posting.
  void advance(double seconds) {
    const double until = now_ + seconds;
    for (;;) {
      takeInbox();
      auto due = queue_.end();
      for (auto it = queue_.begin(); it != queue_.end(); ++it)
        if (it->second.at <= until && (due == queue_.end() || it->second.at < due->second.at)) due = it;
      if (due == queue_.end()) break;
      now_ = std::max(now_, due->second.at);
      // Taken out while it runs, so that work may cancel itself; a repeating item goes back
      // under the same token unless it did.
      auto item = queue_.extract(due);
      running_ = item.key();
      runningCancelled_ = false;
      if (item.mapped().immediate) now_ += jobSeconds;  // the work takes that long: its end is later
      item.mapped().work();
      running_ = 0;
      if (item.mapped().period > 0 && !runningCancelled_) {
        // A repeating timer that fell behind a busy loop fires once, then keeps its period.
        Item& again = item.mapped();
        again.at = again.at + again.period < now_ ? now_ + again.period : again.at + again.period;
        queue_.insert(std::move(item));
      }
    }
    now_ = std::max(now_, until);
  }
  // Simulated cost of each job posted with no delay: the clock moves on by this much while it
  // runs, as the real loop is blocked meanwhile (a frame being made). 0: jobs are instant.
  double jobSeconds = 0;

private:
  static constexpr double kShortestPeriod = 0.001;
  struct Item {
    double at;
    double period;  // 0: once
    std::function<void()> work;
    bool immediate;  // posted with no delay
  };
  void takeInbox() {
    std::vector<std::function<void()>> handed;
    {
      std::lock_guard g(inboxLock_);
      handed.swap(inbox_);
    }
    for (auto& w : handed) postAfter(0, std::move(w));
  }
  std::mutex inboxLock_;
  std::condition_variable inboxSignal_;
  std::vector<std::function<void()>> inbox_;
  std::map<Token, Item> queue_;  // by token: posting order breaks ties
  Token next_ = 0;
  Token running_ = 0;
  bool runningCancelled_ = false;
  double now_ = 0;
};

}  // namespace ombrik
