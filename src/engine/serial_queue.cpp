#include "engine/serial_queue.h"

#include <future>
#include <pthread.h>

namespace ombrik {

SerialQueue::SerialQueue(const std::string& name) : worker_([this] { run(); }) {
  // Linux allows 15 characters and the terminating zero.
  pthread_setname_np(worker_.native_handle(), name.substr(0, 15).c_str());
}

SerialQueue::~SerialQueue() {
  {
    std::lock_guard g(lock_);
    stopping_ = true;
  }
  wake_.notify_one();
  worker_.join();
}

void SerialQueue::async(std::function<void()> job) {
  {
    std::lock_guard g(lock_);
    jobs_.push_back(std::move(job));
  }
  wake_.notify_one();
}

void SerialQueue::sync(const std::function<void()>& job) {
  // Waiting for our own worker from inside a job would never end.
  if (std::this_thread::get_id() == worker_.get_id()) {
    job();
    return;
  }
  std::packaged_task<void()> task(job);
  std::future<void> done = task.get_future();
  async([&task] { task(); });
  done.get();
}

void SerialQueue::run() {
  for (;;) {
    std::function<void()> job;
    {
      std::unique_lock g(lock_);
      wake_.wait(g, [this] { return stopping_ || !jobs_.empty(); });
      if (jobs_.empty()) return;  // stopping, and nothing left to run
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    try {
      job();
    } catch (...) {
      // Nobody waits for an asynchronous job: its failure must not end the worker.
    }
  }
}

}  // namespace ombrik
