#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>
#include <ace/Message_Block.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/module/module_fixture.h"
#include "tests/support/latch.h"

using ::testing::Contains;

namespace qov::test {
namespace {

constexpr int kIgnoredType = 77;

/// A block that does something while it is being copied for a module.
class CopiedBlock : public ACE_Message_Block {
 public:
  explicit CopiedBlock(std::function<void()> during)
      : ACE_Message_Block(0, kIgnoredType), during_(std::move(during)) {}

  ACE_Message_Block* clone(Message_Flags mask = 0) const override {
    during_();
    return ACE_Message_Block::clone(mask);
  }

 private:
  const std::function<void()> during_;
};

/// Whoever comes stays until the next one has come, or is late: there is never nobody unless
/// somebody keeps the next one out.
class Relay {
 public:
  void run() {
    std::unique_lock<std::mutex> lock(mutex_);
    const int mine = ++came_;
    changed_.notify_all();
    changed_.wait_for(lock, kLate, [&] { return came_ > mine; });
  }

 private:
  static constexpr std::chrono::milliseconds kLate{50};

  std::mutex mutex_;
  std::condition_variable changed_;
  int came_ = 0;
};

/// Does something for each record of this thread that has `text` in it, as a log that is busy with
/// it would.
class DuringLog : public ACE_Log_Msg_Callback {
 public:
  DuringLog(std::string text, std::function<void()> during)
      : text_(std::move(text)), during_(std::move(during)) {
    ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::MSG_CALLBACK);
    ACE_Log_Msg::instance()->msg_callback(this);
  }
  ~DuringLog() override {
    ACE_Log_Msg::instance()->msg_callback(nullptr);
    ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::MSG_CALLBACK);
  }

  DuringLog(const DuringLog&) = delete;
  DuringLog& operator=(const DuringLog&) = delete;

  void log(ACE_Log_Record& record) override {
    if (std::string(record.msg_data()).find(text_) != std::string::npos) {
      during_();
    }
  }

 private:
  const std::string text_;
  const std::function<void()> during_;
};

class ModuleThreads : public ModuleTest {
 protected:
  /// While `text` is being logged by `send`, another thread unloads the modules.
  bool unloadsDuring(const std::string& text, const std::function<void()>& send) {
    Latch unloaded;
    std::thread other;
    bool inTime = false;
    {
      const DuringLog during(text, [&] {
        other = std::thread([&] {
          loader().unload();
          unloaded.count();
        });
        inTime = unloaded.waitFor();
      });
      send();
    }
    if (other.joinable()) {
      other.join();
    }
    return inTime;
  }
};

TEST_F(ModuleThreads, SendersThatNeverPauseDoNotKeepModulesFromBeingUnloaded) {
  constexpr int kSenders = 6;
  loads({"alpha"});
  const ProcessLog quiet(0);
  Relay relay;
  Latch sending;
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < kSenders; ++i) {
    threads.emplace_back([&] {
      while (!stop) {
        loader().sendMsg2All(new CopiedBlock([&] { relay.run(); }));
        sending.count();
      }
    });
  }
  EXPECT_TRUE(sending.waitFor(kSenders));
  Latch unloaded;
  threads.emplace_back([&] {
    loader().unload();
    unloaded.count();
  });
  EXPECT_TRUE(unloaded.waitFor());
  stop = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST_F(ModuleThreads, ModulesCanBeUnloadedWhileAnUnknownPidIsLogged) {
  ACE_Message_Block block;
  EXPECT_TRUE(
      unloadsDuring("Pid 300 is invalid!", [&] { EXPECT_EQ(loader().sendMsg(300, &block), -1); }));
}

TEST_F(ModuleThreads, ModulesCanBeUnloadedWhileAFailedBroadcastIsLogged) {
  struct NoCopy : ACE_Message_Block {
    ACE_Message_Block* clone(Message_Flags) const override {
      errno = ENOMEM;
      return nullptr;
    }
  };
  loads({"alpha"});
  NoCopy block;
  EXPECT_TRUE(unloadsDuring("Failed to copy message: Cannot allocate memory.",
                            [&] { loader().sendMsg2All(&block); }));
  EXPECT_THAT(events(), Contains("alpha deleted"));
}

TEST_F(ModuleThreads, AnEntryFunctionThatEndsItsThreadLeavesTheTableFree) {
  mark({"leaving_entry"});
  std::thread([this] { loader().load(); }).join();
  thisProcess().removeModules();
  loads({"alpha"});
}

TEST_F(ModuleThreads, AnInitialisationThatEndsItsThreadDeletesTheModuleWhileOthersCanSend) {
  setOutlet([&loader = loader()] {
    ACE_Message_Block block;
    loader.sendMsg(300, &block);
  });
  mark({"leaving", "other_leaving"});
  std::thread([this] { loader().load(); }).join();
  EXPECT_THAT(events(), Contains("deleted while the other one sent"));
  destroyLoader();
  setOutlet([] {});
}

}  // namespace
}  // namespace qov::test
