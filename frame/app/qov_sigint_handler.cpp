#include <ace/Reactor.h>
#include <ace/Reactor_Impl.h>

#include <csignal>
#include <exception>

#include <qovpub/qov_app.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_logging_strategy.h>
#include <qovpub/qov_utility.h>

#include "diag/log_ids.h"
#include "frame/app/app_signal_relay.h"
#include "frame/app/service_manager.h"

SigintHandler::SigintHandler(CQOV_Logging_Strategy* logStrategy) : logStrategy_(logStrategy) {
  qov::SignalRelay::instance().attach(*this);
}

SigintHandler::~SigintHandler() {
  qov::SignalRelay::instance().detach(*this);
}

int SigintHandler::handle_signal(int signum, siginfo_t* info, ucontext_t*) {
  if (info != nullptr) {
    qov::SignalRelay::note(signum);
  } else if (signum == SIGINT || signum == SIGTERM) {
    ACE_Reactor::instance()->implementation()->deactivate(1);
  } else if (signum == SIGUSR1 && logStrategy_ != nullptr) {
    qov::ServiceManager& manager = qov::ServiceManager::process();
    manager.tellReloading();
    try {
      logStrategy_->reloadLogStrategy(QOV_Utility::getProcessCfgFileName().c_str(),
                                      QOV_Utility::getProcessLogFileName().c_str());
    } catch (const std::exception& e) {
      CQOVDebugKitGuard guard(0, "int SigintHandler::handle_signal(int, siginfo_t*, ucontext_t*)");
      guard.warn(qov::log_id::kReloadFailed, __FUNCTION__, __LINE__,
                 "Failed to configure the log: %s; the log stays as it is", e.what());
    }
    manager.tellReady();
  }
  return 0;
}
