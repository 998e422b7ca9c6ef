#include "bench/requester.h"

#include <ace/Log_Msg.h>
#include <qovpub/qov_task_mgr.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "tests/support/agent_root.h"
#include "tests/support/answering_modules.h"

namespace {

constexpr std::uint8_t kProcess = 7;

/// The loaded modules, for as long as the process runs.
AnsweringModules& modules() {
  static const AgentRoot root(std::filesystem::read_symlink("/proc/self/exe").stem());
  static const bool configured = [] {
    root.writeConfig(5);
    setenv("QOV_ROOT", root.path().c_str(), 1);
    ACE_Log_Msg::instance()->priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
    return true;
  }();
  static AnsweringModules loaded(root);
  static_cast<void>(configured);
  return loaded;
}

}  // namespace

Requester::Requester() : task_(modules().first()) {}

void Requester::request() {
  auto message = std::make_unique<CQOV_MsgPackage>();
  QOVMsgHead& head = message->head();
  head.type_ = 1;
  head.spid_ = kProcess;
  head.smid_ = AnsweringModules::kFirst;
  head.rpid_ = kProcess;
  head.rmid_ = AnsweringModules::kSecond;
  head.opc_ = 1;
  ACE_Time_Value limit(10);
  CQOV_MsgPackage* response = nullptr;
  if (task_.send(message.release(), response, &limit, true) != 0) {
    std::perror("a request failed");
    std::exit(1);
  }
  delete response;
}
