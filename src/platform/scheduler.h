#pragma once
// Runs work later on the main thread. The application posts to the Qt event loop; tests use a
// manual scheduler with its own clock and decide when queued work runs.
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>

namespace ombrik {

class Scheduler {
public:
  using Token = std::uint64_t;
  virtual ~Scheduler() = default;
  // Runs `work` after `seconds` (0: as soon as the loop is free). The token cancels it.
  virtual Token postAfter(double seconds, std::function<void()> work) = 0;
  virtual void cancel(Token token) = 0;
  Token post(std::function<void()> work) { return postAfter(0, std::move(work)); }
};

// Posts to the event loop of the running QCoreApplication (queued, on its thread).
std::shared_ptr<Scheduler> makeEventLoopScheduler();

class ManualScheduler final : public Scheduler {
public:
  Token postAfter(double seconds, std::function<void()> work) override {
    const Token t = ++next_;
    queue_.emplace(t, Item{now_ + std::max(0.0, seconds), std::move(work)});
    return t;
  }
  void cancel(Token token) override { queue_.erase(token); }
  std::size_t pending() const { return queue_.size(); }
  double now() const { return now_; }
  // Runs what is due now, and what that makes due, until nothing due is left.
  void runAll() { advance(0); }
  // Moves the clock on, running work as it falls due, in order of time then of posting.
  void advance(double seconds) {
    const double until = now_ + seconds;
    for (;;) {
      auto due = queue_.end();
      for (auto it = queue_.begin(); it != queue_.end(); ++it)
        if (it->second.at <= until && (due == queue_.end() || it->second.at < due->second.at)) due = it;
      if (due == queue_.end()) break;
      now_ = std::max(now_, due->second.at);
      auto work = std::move(due->second.work);
      queue_.erase(due);
      work();
    }
    now_ = until;
  }

private:
  struct Item {
    double at;
    std::function<void()> work;
  };
  std::map<Token, Item> queue_;  // by token: posting order breaks ties
  Token next_ = 0;
  double now_ = 0;
};

}  // namespace ombrik
