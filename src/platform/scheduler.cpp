#include "platform/scheduler.h"

#include <QCoreApplication>
#include <QTimer>

namespace ombrik {

namespace {
class EventLoopScheduler final : public Scheduler {
public:
  void post(std::function<void()> work) override {
    QTimer::singleShot(0, QCoreApplication::instance(), std::move(work));
  }
};
}  // namespace

std::shared_ptr<Scheduler> makeEventLoopScheduler() { return std::make_shared<EventLoopScheduler>(); }

}  // namespace ombrik
