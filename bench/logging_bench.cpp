#include <ace/Log_Msg.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_logging_strategy.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "bench/ratio.h"

namespace {

/// A number that the compiler cannot know.
volatile int size = 42;

ACE_Log_Msg& log() {
  return *ACE_Log_Msg::instance();
}

void enable(u_long mask) {
  log().priority_mask(mask, ACE_Log_Msg::PROCESS);
}

/// A caller's own formatted call of a kit, as libraries of our users have them.
__attribute__((noinline, format(printf, 2, 3))) void debugF(const CQOVDebugKit& kit,
                                                            const char* format, ...) {
  va_list args;
  va_start(args, format);
  kit.debug(65536, __FUNCTION__, __LINE__, format, args);
  va_end(args);
}

void aceDebug() {
  ACE_DEBUG((LM_DEBUG, "Received %d bytes from %s\n", size, "collector"));
}

/// Target: at most 0.5.
void disabledRecordToAceMasked(benchmark::State& state) {
  const CQOVDebugKit& kit = *CQOVDebugKitMgr::instance()->find(0);
  enable(LM_ERROR);
  Ratio ratio(state);
  for (auto _ : state) {
    ratio.ours([&kit] { kit.debug(65536, __FUNCTION__, __LINE__, "Received a message"); });
    ratio.theirs(aceDebug);
  }
}
BENCHMARK(disabledRecordToAceMasked)->Apply(asRatio);

/// Target: at most 0.5.
void disabledFormattedRecordToAceMasked(benchmark::State& state) {
  const CQOVDebugKit& kit = *CQOVDebugKitMgr::instance()->find(0);
  enable(LM_ERROR);
  Ratio ratio(state);
  for (auto _ : state) {
    ratio.ours([&kit] { debugF(kit, "Received %d bytes from %s", size, "collector"); });
    ratio.theirs(aceDebug);
  }
}
BENCHMARK(disabledFormattedRecordToAceMasked)->Apply(asRatio);

/// Target: at most 0.5.
void disabledRecordOfGuardToAceMasked(benchmark::State& state) {
  CQOVDebugKitGuard guard(0, "int main()");
  enable(LM_ERROR);
  Ratio ratio(state);
  for (auto _ : state) {
    ratio.ours([&guard] {
      guard.debug(65536, __FUNCTION__, __LINE__, "Received %d bytes from %s", size, "collector");
    });
    ratio.theirs(aceDebug);
  }
}
BENCHMARK(disabledRecordOfGuardToAceMasked)->Apply(asRatio);

/// Target: at most 3.
void silentGuardToDisabledRecord(benchmark::State& state) {
  const CQOVDebugKit& kit = *CQOVDebugKitMgr::instance()->find(0);
  enable(LM_ERROR);
  Ratio ratio(state);
  for (auto _ : state) {
    ratio.ours([] {
      const CQOVDebugKitGuard guard(0,
                                    "int CQOV_TaskScheduler::handle_mb_data(ACE_Message_Block*)");
    });
    ratio.theirs([&kit] { kit.debug(65536, __FUNCTION__, __LINE__, "Received a message"); });
  }
}
BENCHMARK(silentGuardToDisabledRecord)->Apply(asRatio);

/// A log file in a directory of its own, written to by our strategy's stream and by ACE's way.
class LogFile {
 public:
  LogFile() {
    if (mkdtemp(directory_) == nullptr) {
      std::perror("mkdtemp");
      std::exit(1);
    }
    CLogging_Cfg_Param param;
    std::snprintf(param.logFile_, sizeof(param.logFile_), "%s", path().c_str());
    param.chkInterval_ = 0;
    param.logFileMaxSize_ = 0;
    strategy_.initLogStrategy(param);
    ours_ = log().msg_ostream();
    ourFlags_ = log().flags();
    aces_.open(path(), std::ios::app);
  }

  ~LogFile() {
    useOurs();
    std::remove(path().c_str());
    rmdir(directory_);
  }

  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  void useOurs() { use(ours_, ourFlags_); }
  void useAces() { use(&aces_, ACE_Log_Msg::OSTREAM | ACE_Log_Msg::VERBOSE_LITE); }

 private:
  static void use(std::ostream* stream, u_long flags) {
    log().clr_flags(~0UL);
    log().set_flags(flags);
    log().msg_ostream(stream);
  }

  std::string path() const { return std::string(directory_) + "/bench.log"; }

  char directory_[32] = "/tmp/qov_logging_bench.XXXXXX";
  CQOV_Logging_Strategy strategy_;
  std::ostream* ours_;
  u_long ourFlags_;
  std::ofstream aces_;
};

/// Target: at most 0.75.
void enabledRecordToAceStamped(benchmark::State& state) {
  const CQOVDebugKit& kit = *CQOVDebugKitMgr::instance()->find(0);
  LogFile file;
  enable(LM_DEBUG);
  Ratio ratio(state);
  for (auto _ : state) {
    file.useOurs();
    ratio.ours([&kit] { debugF(kit, "Received %d bytes from %s", size, "collector"); });
    file.useAces();
    ratio.theirs(aceDebug);
  }
}
BENCHMARK(enabledRecordToAceStamped)->Apply(asRatio);

}  // namespace

BENCHMARK_MAIN();
