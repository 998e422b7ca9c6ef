// A record, against one of ACE's own and, where libspdlog-dev is installed, of spdlog.
#include <ace/Log_Msg.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_logging_strategy.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "bench/ratio.h"
#include "bench/table.h"
#ifdef QOV_BENCH_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

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

void disabledRecordToAceMasked(benchmark::State& state) {
  const CQOVDebugKit& kit = *CQOVDebugKitMgr::instance()->find(0);
  enable(LM_ERROR);
  Ratio ratio(state);
  for (auto _ : state) {
    ratio.ours([&kit] { kit.debug(65536, __FUNCTION__, __LINE__, "Received a message"); });
    ratio.theirs(aceDebug);
  }
}

void disabledFormattedRecordToAceMasked(benchmark::State& state) {
  const CQOVDebugKit& kit = *CQOVDebugKitMgr::instance()->find(0);
  enable(LM_ERROR);
  Ratio ratio(state);
  for (auto _ : state) {
    ratio.ours([&kit] { debugF(kit, "Received %d bytes from %s", size, "collector"); });
    ratio.theirs(aceDebug);
  }
}

void disabledRecordOfGuardToAceMasked(benchmark::State& state) {
  enable(LM_ERROR);
  CQOVDebugKitGuard guard(0, "int main()");
  Ratio ratio(state);
  for (auto _ : state) {
    ratio.ours([&guard] {
      guard.debug(65536, __FUNCTION__, __LINE__, "Received %d bytes from %s", size, "collector");
    });
    ratio.theirs(aceDebug);
  }
}

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

  std::string path() const { return std::string(directory_) + "/bench.log"; }

  void useOurs() { use(ours_, ourFlags_); }
  void useAces() { use(&aces_, ACE_Log_Msg::OSTREAM | ACE_Log_Msg::VERBOSE_LITE); }

 private:
  static void use(std::ostream* stream, u_long flags) {
    log().clr_flags(~0UL);
    log().set_flags(flags);
    log().msg_ostream(stream);
  }

  char directory_[32] = "/tmp/qov_logging_bench.XXXXXX";
  CQOV_Logging_Strategy strategy_;
  std::ostream* ours_;
  u_long ourFlags_;
  std::ofstream aces_;
};

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

#ifdef QOV_BENCH_SPDLOG
/// Both records have the same heads, and are in the file when the call returns.
void enabledRecordToSpdlog(benchmark::State& state) {
  const CQOVDebugKit& kit = *CQOVDebugKitMgr::instance()->find(0);
  LogFile file;
  enable(LM_DEBUG);
  spdlog::logger theirs("bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(file.path()));
  theirs.set_pattern("[%Y/%m/%d %H:%M:%S][65536][%l][%n][%!,%#][][%n:%t] %v");
  theirs.set_level(spdlog::level::debug);
  theirs.flush_on(spdlog::level::debug);
  Ratio ratio(state);
  for (auto _ : state) {
    ratio.ours([&kit] { debugF(kit, "Received %d bytes from %s", size, "collector"); });
    ratio.theirs([&theirs] {
      theirs.log(spdlog::source_loc{__FILE__, __LINE__, __FUNCTION__}, spdlog::level::debug,
                 "Received {} bytes from {}", static_cast<int>(size), "collector");
    });
  }
}
#endif

}  // namespace

int main(int argc, char** argv) {
  row("record to a file, against ACE's stamped record", "<= 0.52", enabledRecordToAceStamped);
#ifdef QOV_BENCH_SPDLOG
  row("record to a file, against spdlog with flush", "<= 0.8", enabledRecordToSpdlog);
#endif
  row("disabled record, against ACE's masked one", "<= 0.5", disabledRecordToAceMasked);
  row("disabled formatted record, against ACE's masked one", "<= 0.5",
      disabledFormattedRecordToAceMasked);
  row("disabled record of a guard, against ACE's masked one", "<= 0.5",
      disabledRecordOfGuardToAceMasked);
  row("silent guard, against a disabled record", "<= 3", silentGuardToDisabledRecord);
  return runTable(argc, argv);
}
