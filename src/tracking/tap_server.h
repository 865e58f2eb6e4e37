#pragma once
// The Python worker processes: the two long-lived servers (`shared` for tracking and AI jobs, `gen`
// for generative fill) and the one-shot fast tracker om_klt. The line protocol is in
// Tracker/PROTOCOL.md. Jobs block on the worker's stream from a background thread; stop() and
// cancel() may come from any other thread and end a blocked job at once.
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "platform/app_language.h"

namespace ombrik {

struct AppPaths;
class UserDefaults;
class WorkerProcess;

// What every worker process is started with.
struct WorkerSetup {
  std::filesystem::path scripts;     // the worker's folder: its scripts and its working directory
  std::filesystem::path logs;        // last_run.log, last_run_fill.log, last_run_klt.log
  std::filesystem::path checkpoint;  // passed as --ckpt; no file ships (no neural tracker)
  std::map<std::string, std::string> environment;
  // A worker silent for longer than these is taken as hung and killed. Between two replies the
  // worker does at most one frame's work (or says where it is reading, once a second): a minute
  // is a wide margin on a loaded machine.
  std::chrono::milliseconds startTimeout{60000};
  std::chrono::milliseconds replyTimeout{60000};
};

// The variables the worker's thread count and memory use follow, from the boost percentage (the
// user default boostPercent): p = percent / 100, or 0.6 when that is not positive.
std::map<std::string, std::string> boostEnvironment(double boostPercent, int processorCount);
WorkerSetup workerSetup(const AppPaths& paths, AppLanguage lang, double boostPercent);
WorkerSetup workerSetup(const AppPaths& paths, AppLanguage lang, const UserDefaults& defaults);
// The interpreter: an installed engine pack's python3 (paths.python/bin), else the system's
// /usr/bin/python3; none when neither can be run.
std::optional<std::filesystem::path> workerPython(const AppPaths& paths);

// What a worker said next.
struct WorkerReply {
  enum class Kind { message, end, timeout } kind = Kind::end;
  nlohmann::json body;  // the reply's object, for `message`
};

// How a job ended. `error` holds the worker's `error` text or the reason the stream failed,
// with the log's path; `cancelled` means stop()/cancel() came during the job, whatever the
// stream did then.
struct JobResult {
  enum class End { done, error, cancelled } end = End::done;
  std::string text;
  bool ok() const { return end == End::done; }
};

using WorkerStatus = std::function<void(const std::string&)>;
using WorkerMessage = std::function<void(const nlohmann::json&)>;

// Texts the failures give, French keys of the catalogue: what TapServer and FastRun return is
// already in the interface's language.
inline const char* const kTrackerNotStarted = "Tracker non démarré";
inline const char* const kTrackerDidNotStart = "Le tracker n'a pas démarré. Détail : ";
inline const char* const kTrackerStopped = "Le tracker s'est arrêté avant la fin. Détail : ";
inline const char* const kTrackerHung = "Le tracker ne répond plus. Détail : ";
inline const char* const kTrackerStarting = "Chargement du tracker (flux optique OpenCV)";

class TapServer {
public:
  enum class Role { shared, gen };
  explicit TapServer(Role role, WorkerSetup setup = {});
  ~TapServer();  // stops the worker
  TapServer(const TapServer&) = delete;
  TapServer& operator=(const TapServer&) = delete;

  // A new setup (boost or language changed): a worker started with another environment stops,
  // and the next ensureRunning starts one with this.
  void configure(WorkerSetup setup);
  // Starts the worker if none runs (or the last one ended between jobs), showing its start-up
  // statuses, and waits for "ready".
  // An error text when it didn't come up (the worker is then stopped).
  std::optional<std::string> ensureRunning(const std::filesystem::path& python, const WorkerStatus& onStatus);
  // One request line; kTrackerNotStarted when no worker runs.
  std::optional<std::string> send(const nlohmann::json& request);
  std::optional<std::string> sendLine(const std::string& line);  // a line as it stands
  // The next reply, skipping lines that aren't JSON objects. `end` when no worker runs or its
  // stream ended; `timeout` after replyTimeout of silence.
  WorkerReply nextMessage();
  // send, then every reply to onMessage (status texts other than "done" included) until "done"
  // or `error`. A stream that ends or goes silent stops the worker and says so with the log.
  JobResult runJob(const nlohmann::json& request, const WorkerMessage& onMessage);
  // Ends the worker now (cancel, boost change, exit); a job blocked on it ends as cancelled.
  void stop();
  bool running() const;
  int pid() const;  // the worker's process id, -1 when none runs
  std::filesystem::path logFile() const;

private:
  std::shared_ptr<WorkerProcess> current() const;
  std::string failure(WorkerReply::Kind kind, const std::shared_ptr<WorkerProcess>& proc);

  const Role role_;
  WorkerSetup setup_;
  mutable std::mutex mutex_;  // process_, setup_, started_ and stops_: held briefly, never while reading
  std::mutex startMutex_;     // one start at a time
  std::shared_ptr<WorkerProcess> process_;
  std::map<std::string, std::string> startedWith_;
  std::atomic<unsigned> stops_{0};
};

// The two servers, held by whoever owns the workers (the application model), not global.
struct Workers {
  TapServer shared{TapServer::Role::shared};
  TapServer gen{TapServer::Role::gen};
  void configure(const WorkerSetup& setup) {
    shared.configure(setup);
    gen.configure(setup);
  }
  void stop() {
    shared.stop();
    gen.stop();
  }
};

// One job of the fast tracker om_klt.py: a process per job, started with [script, job JSON]; one
// object per job too (a cancel stays).
// run() blocks, calling onLine with every reply but the final "done" or `error`; cancel() from
// any other thread kills the process and run() returns `cancelled`.
class FastRun {
public:
  explicit FastRun(WorkerSetup setup) : setup_(std::move(setup)) {}
  JobResult run(const std::filesystem::path& python, const nlohmann::json& job, const WorkerMessage& onLine);
  void cancel();
  bool cancelled() const { return cancelled_; }

private:
  WorkerSetup setup_;
  std::mutex mutex_;
  std::shared_ptr<WorkerProcess> process_;
  std::atomic<bool> cancelled_{false};
};

}  // namespace ombrik
