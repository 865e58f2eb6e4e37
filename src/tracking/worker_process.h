#pragma once
// A child process spoken to in lines: its stdin written, its stdout read a line at a time with a
// time limit, its stderr sent to a log file. Plain POSIX rather than QProcess because jobs block on
// the stream from whatever background thread runs them, and another thread must be able to kill
// the child while that one is blocked.
#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace ombrik {

class WorkerProcess {
public:
  struct Spec {
    std::filesystem::path program;
    std::vector<std::string> args;  // after the program's own name
    std::filesystem::path workingDir;
    std::map<std::string, std::string> environment;  // set on top of this process's own
    std::filesystem::path log;  // stderr, truncated at start; nothing when empty
  };
  // The child started, or null with the reason in `error`.
  static std::unique_ptr<WorkerProcess> start(const Spec& spec, std::string* error);
  ~WorkerProcess();  // kills and reaps a child that still runs
  WorkerProcess(const WorkerProcess&) = delete;
  WorkerProcess& operator=(const WorkerProcess&) = delete;

  // One line and "\n" on the child's stdin; false when the child no longer reads.
  bool writeLine(const std::string& line);
  enum class Read { line, end, timeout };
  // The next line of stdout, without its "\n". `end` once stdout is closed (the child ended or
  // was killed). Safe beside kill() from another thread; one reader at a time.
  Read readLine(std::string& line, std::chrono::milliseconds timeout);

  // Asks the child to end (stdin closed, SIGTERM), kills it after `grace`, and reaps it.
  void stop(std::chrono::milliseconds grace = std::chrono::milliseconds(300));
  // Waits up to `grace` for the child to end by itself (after its last reply), then kills it.
  void finish(std::chrono::milliseconds grace);
  void kill();  // SIGKILL, reaped
  bool alive();  // false once the child has ended, for whatever reason
  pid_t pid() const { return pid_; }
  // Adds a line to the log, e.g. why the application ended the child.
  void note(const std::string& text) const;

private:
  WorkerProcess() = default;
  bool reap(bool block);

  pid_t pid_ = -1;
  int in_ = -1;   // our end of the child's stdin
  int out_ = -1;  // our end of the child's stdout
  std::filesystem::path log_;
  std::string buffer_;
  std::mutex lifeMutex_;  // pid_ reaping and the stdin end
  bool reaped_ = false;
};

}  // namespace ombrik
