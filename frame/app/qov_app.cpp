#include <qovpub/qov_app.h>

#include <ace/Get_Opt.h>
#include <ace/Reactor.h>
#include <ace/Reactor_Impl.h>
#include <ace/Thread.h>
#include <ace/Thread_Manager.h>
#include <malloc.h>
#include <qovplatform/platform_guard.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <new>
#include <optional>
#include <string_view>

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_logging_strategy.h>
#include <qovpub/qov_module_loader.h>
#include <qovpub/qov_plugins.h>
#include <qovpub/qov_utility.h>

#include "diag/log_ids.h"
#include "frame/app/app_signal_block.h"
#include "frame/app/app_signal_relay.h"
#include "frame/app/app_start_watch.h"
#include "frame/app/service_manager.h"
#include "frame/app/service_watchdog.h"
#include "frame/app/start_lines.h"
#include "frame/app/start_report.h"
#include "frame/env/current_step.h"
#include "frame/env/env_failure.h"
#include "module/crash_report.h"
#include "module/module_shutdown.h"
#include "module/process_loader.h"
#include "module/shutdown_watch.h"
#include "module/uncaught.h"

namespace {

/// Long-running agents do not hold freed memory: larger blocks are mappings of their own and small
/// ones are merged at once.
void tuneAllocator() {
  ::mallopt(M_MMAP_THRESHOLD, 1024);
  ::mallopt(M_MXFAST, 0);
}

/// Makes the calling thread the one that runs the process reactor, whoever touched it first, and
/// undoes the end of an event loop that an earlier frame of this process has run. From here on the
/// reactor has the descriptor that signals wake it through.
void ownReactor() {
  ACE_Reactor& reactor = *ACE_Reactor::instance();
  reactor.owner(ACE_Thread::self());
  if (reactor.implementation()->deactivated() != 0) {
    reactor.implementation()->deactivate(0);
  }
  qov::SignalRelay::instance().listen();
}

void runReactor() {
  ACE_Reactor& reactor = *ACE_Reactor::instance();
  reactor.owner(ACE_Thread::self());
  const qov::SignalMask admission(SIG_UNBLOCK, qov::loopSignals());
  const qov::ServiceWatchdog watchdog(qov::ServiceManager::process());
  while (reactor.implementation()->deactivated() == 0) {
    if (reactor.handle_events() == -1) {
      // A module's thread may have run the reactor meanwhile. It owns it since, and without it back
      // this loop would turn for nothing.
      reactor.owner(ACE_Thread::self());
    }
    // Without a descriptor the signal has still interrupted the wait.
    qov::SignalRelay::instance().carryOut();
  }
}

/// Made without memory.
constexpr std::string_view kNoMemory = "Failed to start the agent: Cannot allocate memory";

void closePlugins() {
  const qov::CurrentStep step("closing the plug-ins");
  CQOV_Plugins::close();
}

void waitForOtherThreads() {
  const qov::CurrentStep step("waiting for threads that belong to no module");
  ACE_Thread_Manager::instance()->wait(nullptr, false, true);
}

}  // namespace

bool CQOVapp::bDeaemonize_ = true;
SigintHandler* CQOVapp::signalHandler_ = nullptr;

CQOVapp::CQOVapp() = default;

CQOVapp::~CQOVapp() {
  if (modulesLoaded_) {
    // Their threads log, so they end before what they log through.
    qov::ModuleShutdown::stopAll();
  }
  dropLogStrategy();
  CQOVDebugKitMgr::close();
}

void CQOVapp::dropLogStrategy() {
  if (signalHandler_ != nullptr && signalHandler_->logStrategy_ == logStrategy_.get()) {
    signalHandler_->logStrategy_ = nullptr;
  }
  logStrategy_.reset();
}

int CQOVapp::init(int argc, char** argv) {
  qov::tellUncaught();
  parse_args(argc, argv);
  const qov::SignalMask block(SIG_BLOCK, qov::loopSignals());
  qov::ignoreBrokenPipes();
  qov::blockSignalsAtExit();
  qov::StartReport report(bDeaemonize_);
  try {
    if (bDeaemonize_ && !splitOffDaemon(report)) {
      return -1;
    }
    const int result = start(argc, argv);
    if (result == 0) {
      report.succeeded();
      qov::ServiceManager::process().tellReady();
    } else if (errno == ENOMEM) {
      report.tell(kNoMemory);
      errno = ENOMEM;
    }
    return result;
  } catch (const qov::EnvFailure& e) {
    report.tell(qov::textOf(e.failure()));
    throw;
  } catch (const std::bad_alloc&) {
    report.tell(kNoMemory);
    throw;
  } catch (const std::exception& e) {
    report.tell(qov::textOf({"start the agent", {}, 0, {}, e.what()}));
    throw;
  }
}

/// What can be told before a process is split off is told before.
bool CQOVapp::splitOffDaemon(qov::StartReport& report) {
  const std::string root = QOV_Utility::getQOVRootEnv();
  if (!root.empty() && root.front() != '/') {
    report.tell(qov::textOf(
        {"become a daemon", root, 0, {}, "the environment variable QOV_ROOT is no absolute path"}));
    return false;
  }
  QOV_Utility::getProcessCfgFileName();
  report.becomeDaemon(root.empty() ? "/" : root);
  return true;
}

int CQOVapp::start(int argc, char** argv) {
  const qov::StartWatch watch;
  // Before the modules, one of whose threads may wait in the dynamic loader.
  qov::ShutdownWatch::prepare();
  // Not before: a daemon has lost the descriptors of an earlier reactor. Not later: a module's
  // thread that came first would own it.
  ownReactor();
  tuneAllocator();
  CQOVDebugKitMgr::instance();
  programName_ = argc > 0 && argv != nullptr && argv[0] != nullptr ? argv[0] : "";
  const std::string& cfgFile = QOV_Utility::getProcessCfgFileName();
  const std::string& logFile = QOV_Utility::getProcessLogFileName();
  dropLogStrategy();
  logStrategy_.reset(new (std::nothrow) CQOV_Logging_Strategy);
  if (logStrategy_ == nullptr) {
    errno = ENOMEM;
    return -1;
  }
  logStrategy_->initLogStrategy(cfgFile.c_str(), logFile.c_str());
  qov::logStart();
  qov::tellCrashes();
  qov::ServiceManager::process().find();
  CQOV_Plugins::instance();
  CQOV_Module_Loader& loader = qov::processLoader();
  modulesLoaded_ = true;
  errno = 0;
  if (!loader.load()) {
    const int reason = errno;
    loader.unload();
    dropLogStrategy();
    errno = reason;
    return -1;
  }
  CQOVDebugKitGuard guard(0, "int CQOVapp::init(int, ACE_TCHAR**)");
  handleSignals();
  guard.info(qov::log_id::kStarted, "init", __LINE__, "Successed to init %s", programName_.c_str());
  return 0;
}

void CQOVapp::handleSignals() {
  if (signalHandler_ == nullptr) {
    signalHandler_ = new SigintHandler(nullptr);
  }
  // Signals that an earlier frame noted and did not carry out are dropped.
  qov::SignalRelay::instance().attach(*signalHandler_);
  qov::ShutdownWatch::heedSignals();
  signalHandler_->logStrategy_ = logStrategy_.get();
  for (const int signum : {SIGINT, SIGPIPE, SIGUSR1, SIGTERM}) {
    ACE_Reactor::instance()->register_handler(signum, signalHandler_);
  }
}

void CQOVapp::event_loop_done() {
  // A second loop has them heeded again.
  qov::ShutdownWatch::heedSignals();
  // To the end of the trace, which hangs where the log does.
  std::optional<qov::ShutdownWatch> watch;
  CQOVDebugKitGuard guard(0, "void CQOVapp::event_loop_done()");
  {
    // The platform's guard has its fixed place between the traces.
    const MonitorGuard monitor(qov::ShutdownWatch::kSeconds);
    runReactor();
    watch.emplace();
    qov::ServiceManager::process().tellStopping();
    qov::processLoader().unload();
    closePlugins();
    waitForOtherThreads();
    guard.info(qov::log_id::kShutDown, __FUNCTION__, __LINE__, "%s had shutdown.",
               programName_.c_str());
  }
}

void CQOVapp::parse_args(int argc, char** argv) {
  // One scanner per word: a single one would end at "--" and, with POSIXLY_CORRECT in the
  // environment, at the first word that is no option.
  for (int word = 1; word < argc && argv[word] != nullptr; ++word) {
    ACE_Get_Opt options(word + 1, argv, "n", word, 0, ACE_Get_Opt::RETURN_IN_ORDER);
    for (int option = options(); option != EOF; option = options()) {
      if (option == 'n') {
        bDeaemonize_ = false;
      }
    }
  }
}
