#include "tracking/worker_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

extern char** environ;

namespace ombrik {

namespace {

std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string>& extra) {
  std::map<std::string, std::string> all;
  for (char** e = environ; e && *e; ++e) {
    const std::string entry(*e);
    const auto eq = entry.find('=');
    if (eq != std::string::npos) all[entry.substr(0, eq)] = entry.substr(eq + 1);
  }
  for (const auto& [k, v] : extra) all[k] = v;
  std::vector<std::string> out;
  for (const auto& [k, v] : all) out.push_back(k + "=" + v);
  return out;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> out;
  for (auto& s : strings) out.push_back(s.data());
  out.push_back(nullptr);
  return out;
}

}  // namespace

std::unique_ptr<WorkerProcess> WorkerProcess::start(const Spec& spec, std::string* error) {
  auto fail = [&](const std::string& what, int err) {
    if (error) *error = what + ": " + std::strerror(err);
    return nullptr;
  };
  // stdin is a socket so that writing to a child that died gives an error, not SIGPIPE
  // (send with MSG_NOSIGNAL); stdout a plain pipe.
  int in[2], out[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, in) != 0) return fail("socketpair", errno);
  if (pipe2(out, O_CLOEXEC) != 0) {
    const int err = errno;
    close(in[0]), close(in[1]);
    return fail("pipe", err);
  }

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[1], 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  const std::string log = spec.log.empty() ? std::string("/dev/null") : spec.log.string();
  posix_spawn_file_actions_addopen(&actions, 2, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (!spec.workingDir.empty()) posix_spawn_file_actions_addchdir_np(&actions, spec.workingDir.c_str());

  // The child starts with default signal handling whatever this process blocks or ignores.
  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  sigset_t none, defaults;
  sigemptyset(&none);
  sigemptyset(&defaults);
  for (int s : {SIGPIPE, SIGTERM, SIGINT, SIGHUP, SIGCHLD}) sigaddset(&defaults, s);
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setsigdefault(&attr, &defaults);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  std::vector<std::string> argvStrings{spec.program.string()};
  argvStrings.insert(argvStrings.end(), spec.args.begin(), spec.args.end());
  std::vector<std::string> envStrings = mergedEnvironment(spec.environment);
  auto argv = pointers(argvStrings);
  auto envp = pointers(envStrings);

  pid_t pid = -1;
  const int rc = posix_spawn(&pid, spec.program.c_str(), &actions, &attr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attr);
  close(in[1]);
  close(out[1]);
  if (rc != 0) {
    close(in[0]), close(out[0]);
    return fail(spec.program.string(), rc);
  }
  std::unique_ptr<WorkerProcess> p(new WorkerProcess);
  p->pid_ = pid;
  p->in_ = in[0];
  p->out_ = out[0];
  p->log_ = spec.log;
  return p;
}

WorkerProcess::~WorkerProcess() {
  kill();
  if (in_ >= 0) close(in_);
  if (out_ >= 0) close(out_);
}

bool WorkerProcess::writeLine(const std::string& line) {
  std::lock_guard lock(lifeMutex_);
  if (in_ < 0 || reaped_) return false;
  const std::string data = line + "\n";
  std::size_t sent = 0;
  while (sent < data.size()) {
    const ssize_t n = send(in_, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    sent += std::size_t(n);
  }
  return true;
}

WorkerProcess::Read WorkerProcess::readLine(std::string& line, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    if (const auto nl = buffer_.find('\n'); nl != std::string::npos) {
      line = buffer_.substr(0, nl);
      buffer_.erase(0, nl + 1);
      return Read::line;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return Read::timeout;
    pollfd pfd{out_, POLLIN, 0};
    const int ready = poll(&pfd, 1, int(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0) return Read::timeout;
    char chunk[65536];
    const ssize_t n = read(out_, chunk, sizeof chunk);
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (n <= 0) return Read::end;  // an unfinished last line is no reply
    buffer_.append(chunk, std::size_t(n));
  }
}

bool WorkerProcess::reap(bool block) {
  if (reaped_) return true;
  int status = 0;
  pid_t r;
  do r = waitpid(pid_, &status, block ? 0 : WNOHANG);
  while (r < 0 && errno == EINTR);
  if (r == pid_ || (r < 0 && errno == ECHILD)) reaped_ = true;
  return reaped_;
}

void WorkerProcess::stop(std::chrono::milliseconds grace) {
  std::lock_guard lock(lifeMutex_);
  if (reaped_ || pid_ <= 0) return;
  shutdown(in_, SHUT_WR);  // a worker between jobs ends on its own at the end of its input
  ::kill(pid_, SIGTERM);
  const auto deadline = std::chrono::steady_clock::now() + grace;
  while (!reap(false) && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  if (!reaped_) {
    ::kill(pid_, SIGKILL);  // also ends a stopped (SIGSTOP) child
    reap(true);
  }
}

void WorkerProcess::finish(std::chrono::milliseconds grace) {
  {
    std::lock_guard lock(lifeMutex_);
    if (reaped_ || pid_ <= 0) return;
    shutdown(in_, SHUT_WR);
    const auto deadline = std::chrono::steady_clock::now() + grace;
    while (!reap(false) && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  kill();
}

bool WorkerProcess::alive() {
  std::lock_guard lock(lifeMutex_);
  return pid_ > 0 && !reap(false);
}

void WorkerProcess::kill() {
  std::lock_guard lock(lifeMutex_);
  if (reaped_ || pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  reap(true);
}

void WorkerProcess::note(const std::string& text) const {
  if (log_.empty()) return;
  const int fd = open(log_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return;
  const std::string line = "[ombrik] " + text + "\n";
  [[maybe_unused]] const ssize_t n = write(fd, line.data(), line.size());
  close(fd);
}

}  // namespace ombrik
