#include "platform/scheduler.h"

#include <QCoreApplication>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <map>

namespace ombrik {

namespace {
class EventLoopScheduler final : public Scheduler {
public:
  Token postAfter(double seconds, std::function<void()> work) override {
    const Token t = ++next_;
    auto* timer = new QTimer(QCoreApplication::instance());
    timer->setSingleShot(true);
    QObject::connect(timer, &QTimer::timeout, timer, [this, t, timer, work = std::move(work)] {
      timers_.erase(t);
      timer->deleteLater();
      work();
    });
    timers_[t] = timer;
    timer->start(int(seconds * 1000));
    return t;
  }
  Token every(double seconds, std::function<void()> work) override {
    const Token t = ++next_;
    auto* timer = new QTimer(QCoreApplication::instance());
    timer->setTimerType(Qt::PreciseTimer);  // the play clock's ticks are a few milliseconds apart
    QObject::connect(timer, &QTimer::timeout, timer, std::move(work));
    timers_[t] = timer;
    timer->start(std::max(1, int(seconds * 1000)));
    return t;
  }
  void cancel(Token token) override {
    auto it = timers_.find(token);
    if (it == timers_.end()) return;
    it->second->stop();
    it->second->deleteLater();
    timers_.erase(it);
  }

  double now() const override {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
  }
  void postFromThread(std::function<void()> work) override {
    // A queued call to the application object: Qt hands it to the main thread's loop.
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(work), Qt::QueuedConnection);
  }

private:
  std::map<Token, QTimer*> timers_;
  Token next_ = 0;
};
}  // namespace

std::shared_ptr<Scheduler> makeEventLoopScheduler() { return std::make_shared<EventLoopScheduler>(); }

}  // namespace ombrik
