#include "tracking/tap_server.h"

#include <unistd.h>

#include <cstdio>
#include <thread>

#include "platform/app_paths.h"
#include "platform/string_catalogue.h"
#include "platform/user_defaults.h"
#include "tracking/worker_process.h"

namespace ombrik {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

fs::path scriptIn(const fs::path& dir, const std::string& name) {
  std::error_code ec;
  if (fs::exists(dir / name, ec)) return dir / name;
  return dir / (name + "c");  // a compiled script shipped alone (name.pyc)
}

bool executable(const fs::path& p) { return access(p.c_str(), X_OK) == 0; }

std::string format2(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.2f", v);
  return buf;
}

std::string dump(const json& j) { return j.dump(-1, ' ', false, json::error_handler_t::replace); }

// One reply line read as an object; lines that aren't are passed over (the worker keeps stdout
// for replies, but a library may still print there).
WorkerReply readReply(WorkerProcess& proc, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    std::string line;
    switch (proc.readLine(line, std::max(left, std::chrono::milliseconds(0)))) {
      case WorkerProcess::Read::end: return {WorkerReply::Kind::end, {}};
      case WorkerProcess::Read::timeout: return {WorkerReply::Kind::timeout, {}};
      case WorkerProcess::Read::line: break;
    }
    json body = json::parse(line, nullptr, false);
    if (body.is_object()) return {WorkerReply::Kind::message, std::move(body)};
  }
}

std::string errorText(const json& body) {
  const auto& e = body["error"];
  return e.is_string() ? e.get<std::string>() : dump(e);
}

bool isStatus(const json& body, const char* text) {
  const auto it = body.find("status");
  return it != body.end() && it->is_string() && it->get<std::string>() == text;
}

}  // namespace

std::map<std::string, std::string> boostEnvironment(double boostPercent, int processorCount) {
  const double p = boostPercent > 0 ? boostPercent / 100 : 0.6;
  const double high = 1.4 * p + 0.3;
  return {
      {"OM_THREADS", std::to_string(std::max(1, int(p * processorCount)))},
      {"PYTORCH_MPS_HIGH_WATERMARK_RATIO", format2(high)},
      {"PYTORCH_MPS_LOW_WATERMARK_RATIO", format2(0.8 * high)},
  };
}

WorkerSetup workerSetup(const AppPaths& paths, AppLanguage lang, double boostPercent) {
  WorkerSetup s;
  s.scripts = paths.scripts;
  s.logs = paths.logs;
  s.checkpoint = paths.models / "om_track.ckpt";
  s.environment = paths.pythonEnvironment(lang);
  s.environment["HF_HUB_DISABLE_XET"] = "1";
  s.environment["PYTORCH_ENABLE_MPS_FALLBACK"] = "1";
  const int cores = int(std::max(1u, std::thread::hardware_concurrency()));
  for (const auto& [k, v] : boostEnvironment(boostPercent, cores)) s.environment[k] = v;
  return s;
}

WorkerSetup workerSetup(const AppPaths& paths, AppLanguage lang, const UserDefaults& defaults) {
  return workerSetup(paths, lang, defaults.real("boostPercent"));
}

std::optional<fs::path> workerPython(const AppPaths& paths) {
  for (const fs::path& p : {paths.python / "bin" / "python3", fs::path("/usr/bin/python3")})
    if (executable(p)) return p;
  return std::nullopt;
}

// ---- TapServer

TapServer::TapServer(Role role, WorkerSetup setup) : role_(role), setup_(std::move(setup)) {}

TapServer::~TapServer() { stop(); }

void TapServer::configure(WorkerSetup setup) {
  bool changed;
  {
    std::lock_guard lock(mutex_);
    changed = process_ && startedWith_ != setup.environment;
    setup_ = std::move(setup);
  }
  if (changed) stop();
}

fs::path TapServer::logFile() const {
  std::lock_guard lock(mutex_);
  return setup_.logs / (role_ == Role::gen ? "last_run_fill.log" : "last_run.log");
}

std::shared_ptr<WorkerProcess> TapServer::current() const {
  std::lock_guard lock(mutex_);
  return process_;
}

bool TapServer::running() const { return current() != nullptr; }

int TapServer::pid() const {
  const auto p = current();
  return p ? int(p->pid()) : -1;
}

void TapServer::stop() {
  std::shared_ptr<WorkerProcess> proc;
  {
    std::lock_guard lock(mutex_);
    proc = std::move(process_);
    process_.reset();
    ++stops_;
  }
  if (proc) proc->stop();
}

std::string TapServer::failure(WorkerReply::Kind kind, const std::shared_ptr<WorkerProcess>& proc) {
  long long timeout;
  {
    std::lock_guard lock(mutex_);
    timeout = std::chrono::duration_cast<std::chrono::seconds>(setup_.replyTimeout).count();
    if (process_ == proc) process_.reset();
  }
  if (kind == WorkerReply::Kind::timeout)
    proc->note("no reply for " + std::to_string(timeout) + " s: the application ended the worker");
  proc->stop();
  return tr(kind == WorkerReply::Kind::timeout ? kTrackerHung : kTrackerStopped) + logFile().string();
}

std::optional<std::string> TapServer::ensureRunning(const fs::path& python, const WorkerStatus& onStatus) {
  std::lock_guard starting(startMutex_);
  WorkerSetup setup;
  std::shared_ptr<WorkerProcess> dead;
  {
    std::lock_guard lock(mutex_);
    if (process_ && process_->alive()) return std::nullopt;
    dead = std::move(process_);  // ended between jobs (killed, out of memory): start afresh
    process_.reset();
    setup = setup_;
  }
  if (onStatus) onStatus(tr(kTrackerStarting));
  const fs::path log = logFile();
  std::error_code ec;
  fs::create_directories(setup.logs, ec);
  WorkerProcess::Spec spec{python,
                           {scriptIn(setup.scripts, "om_track.py").string(), "--ckpt", setup.checkpoint.string(), "--server"},
                           setup.scripts,
                           setup.environment,
                           log};
  if (role_ == Role::gen) spec.args.push_back("--no-track");
  std::string error;
  std::shared_ptr<WorkerProcess> proc = WorkerProcess::start(spec, &error);
  const std::string didNotStart = tr(kTrackerDidNotStart) + log.string();
  if (!proc) {
    if (FILE* f = std::fopen(log.c_str(), "w")) std::fprintf(f, "[ombrik] %s\n", error.c_str()), std::fclose(f);
    return didNotStart;
  }
  {
    std::lock_guard lock(mutex_);
    process_ = proc;
    startedWith_ = setup.environment;
  }
  for (;;) {
    WorkerReply r = readReply(*proc, setup.startTimeout);
    if (r.kind == WorkerReply::Kind::message) {
      if (r.body.contains("error")) {
        const std::string text = errorText(r.body);
        failure(WorkerReply::Kind::end, proc);
        return text;
      }
      if (isStatus(r.body, "ready")) return std::nullopt;
      if (onStatus && r.body.contains("status") && r.body["status"].is_string()) onStatus(r.body["status"]);
      continue;
    }
    if (r.kind == WorkerReply::Kind::timeout) proc->note("no \"ready\" in time: the application ended the worker");
    failure(WorkerReply::Kind::end, proc);
    return didNotStart;
  }
}

std::optional<std::string> TapServer::send(const json& request) { return sendLine(dump(request)); }

std::optional<std::string> TapServer::sendLine(const std::string& line) {
  const auto proc = current();
  if (!proc) return tr(kTrackerNotStarted);
  if (!proc->writeLine(line)) return tr(kTrackerStopped) + logFile().string();
  return std::nullopt;
}

WorkerReply TapServer::nextMessage() {
  const auto proc = current();
  if (!proc) return {};
  std::chrono::milliseconds timeout;
  {
    std::lock_guard lock(mutex_);
    timeout = setup_.replyTimeout;
  }
  return readReply(*proc, timeout);
}

JobResult TapServer::runJob(const json& request, const WorkerMessage& onMessage) {
  const unsigned stopsAtStart = stops_;
  const auto proc = current();
  if (!proc) return {JobResult::End::error, tr(kTrackerNotStarted)};
  std::chrono::milliseconds timeout;
  {
    std::lock_guard lock(mutex_);
    timeout = setup_.replyTimeout;
  }
  WorkerReply r{WorkerReply::Kind::end, {}};
  if (proc->writeLine(dump(request))) {
    for (;;) {
      r = readReply(*proc, timeout);
      if (stops_ != stopsAtStart) return {JobResult::End::cancelled, {}};
      if (r.kind != WorkerReply::Kind::message) break;
      if (r.body.contains("error")) return {JobResult::End::error, errorText(r.body)};
      if (isStatus(r.body, "done")) return {};
      if (onMessage) onMessage(r.body);
    }
  }
  if (stops_ != stopsAtStart) return {JobResult::End::cancelled, {}};
  return {JobResult::End::error, failure(r.kind, proc)};
}

// ---- FastRun

JobResult FastRun::run(const fs::path& python, const json& job, const WorkerMessage& onLine) {
  const fs::path log = setup_.logs / "last_run_klt.log";
  std::error_code ec;
  fs::create_directories(setup_.logs, ec);
  WorkerProcess::Spec spec{python, {scriptIn(setup_.scripts, "om_klt.py").string(), dump(job)}, setup_.scripts,
                           setup_.environment, log};
  std::string error;
  std::shared_ptr<WorkerProcess> proc = WorkerProcess::start(spec, &error);
  if (!proc) {
    if (FILE* f = std::fopen(log.c_str(), "w")) std::fprintf(f, "[ombrik] %s\n", error.c_str()), std::fclose(f);
    return {JobResult::End::error, tr(kTrackerDidNotStart) + log.string()};
  }
  {
    std::lock_guard lock(mutex_);
    process_ = proc;
  }
  if (cancelled_) proc->kill();  // cancelled while it started
  JobResult result{JobResult::End::error, {}};
  for (;;) {
    WorkerReply r = readReply(*proc, setup_.replyTimeout);
    if (cancelled_) {
      result = {JobResult::End::cancelled, {}};
      break;
    }
    if (r.kind == WorkerReply::Kind::message) {
      if (r.body.contains("error")) {
        result.text = errorText(r.body);
        break;
      }
      if (isStatus(r.body, "done")) {
        result = {};
        break;
      }
      if (onLine) onLine(r.body);
      continue;
    }
    if (r.kind == WorkerReply::Kind::timeout) proc->note("no reply in time: the application ended the tracker");
    result.text = tr(r.kind == WorkerReply::Kind::timeout ? kTrackerHung : kTrackerStopped) + log.string();
    break;
  }
  {
    std::lock_guard lock(mutex_);
    process_.reset();
  }
  proc->finish(std::chrono::milliseconds(1000));  // after "done" it is already ending by itself
  return result;
}

void FastRun::cancel() {
  cancelled_ = true;
  std::shared_ptr<WorkerProcess> proc;
  {
    std::lock_guard lock(mutex_);
    proc = process_;
  }
  if (proc) proc->kill();
}

}  // namespace ombrik
