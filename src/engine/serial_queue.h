#pragma once
// One worker thread that runs jobs one at a time, in the order they were queued. State that only
// queued jobs touch needs no lock of its own.
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace ombrik {

class SerialQueue {
public:
  // `name` labels the thread for debuggers (cut to what the system allows).
  explicit SerialQueue(const std::string& name);
  // Runs what is still queued, then ends the thread.
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  // Queues `job` and returns at once. An exception it throws is dropped.
  void async(std::function<void()> job);
  // Runs `job` on the worker after everything queued before it, and waits for it; its exception
  // is rethrown here. From a job of this queue it runs at once, in place.
  void sync(const std::function<void()>& job);

private:
  void run();

  std::mutex lock_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> jobs_;
  bool stopping_ = false;
  std::thread worker_;  // last: starts once the rest is ready
};

}  // namespace ombrik
