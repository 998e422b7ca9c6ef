#include <gmock/gmock.h>
#include <qovpub/qov_common_debugkit.h>

#include <cerrno>
#include <memory>

#include "tests/diag/log_capture.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class DebugKitGuard : public testing::Test {
 protected:
  ~DebugKitGuard() override { CQOVDebugKitMgr::close(); }

  static CQOVDebugKitMgr& kits() { return *CQOVDebugKitMgr::instance(); }

  LogCapture capture_;
};

TEST_F(DebugKitGuard, TracesEntryAndExit) {
  {
    const CQOVDebugKitGuard guard(0, "int f(void)");
    EXPECT_THAT(capture_.text(), EndsWith("] enter int f(void)...\n"));
    EXPECT_THAT(capture_.text(), HasSubstr("][18446744073709551615][TRACE][QOVPUBLIC][,0][]["));
  }
  EXPECT_THAT(capture_.text(), EndsWith("] leave int f(void): OK\n"));
  EXPECT_EQ(capture_.lines(), 2);
}

TEST_F(DebugKitGuard, TakesANameThatIsGoneWhenItLeaves) {
  {
    auto name = std::make_unique<std::string>("int longEnoughToBeAllocatedOnTheHeap(void)");
    const CQOVDebugKitGuard guard(0, *name);
    name.reset();
  }
  EXPECT_THAT(capture_.text(),
              EndsWith("] leave int longEnoughToBeAllocatedOnTheHeap(void): OK\n"));
}

TEST_F(DebugKitGuard, TakesATextThatHasChangedWhenItLeaves) {
  char text[] = "f";
  const char* const constant = text;
  char* const changing = text;
  {
    const CQOVDebugKitGuard ofAnArray(0, text);
    const CQOVDebugKitGuard ofAPointer(0, changing);
    const CQOVDebugKitGuard ofAConstantPointer(0, constant);
    text[0] = 'g';
    capture_.clear();
  }
  EXPECT_EQ(capture_.lines(), 3);
  EXPECT_THAT(capture_.text(), Not(HasSubstr("leave g: OK")));
}

TEST_F(DebugKitGuard, LeavesWithOkAfterDebugAndInfo) {
  {
    CQOVDebugKitGuard guard(0, "f");
    guard.debug(1, "f", 2, "%d", 3);
    guard.info(1, "f", 2, "%d", 4);
  }
  EXPECT_THAT(capture_.text(), HasSubstr("[DBG]"));
  EXPECT_THAT(capture_.text(), HasSubstr("[INFO]"));
  EXPECT_THAT(capture_.text(), EndsWith("leave f: OK\n"));
}

TEST_F(DebugKitGuard, LeavesWithNokAfterAWarning) {
  {
    CQOVDebugKitGuard guard(0, "f");
    guard.warn(1, "f", 2, "%d", 3);
  }
  EXPECT_THAT(capture_.text(), HasSubstr("[WARN][QOVPUBLIC][f,2]"));
  EXPECT_THAT(capture_.text(), EndsWith("leave f: NOK\n"));
}

TEST_F(DebugKitGuard, LeavesWithNokAfterAnErrorEvenIfThatWasNotLogged) {
  {
    CQOVDebugKitGuard guard(0, "f");
    LogCapture::log().priority_mask(LM_TRACE, ACE_Log_Msg::PROCESS);
    guard.error(1, "f", 2, "%d", 3);
  }
  EXPECT_THAT(capture_.text(), Not(HasSubstr("[ERR]")));
  EXPECT_THAT(capture_.text(), EndsWith("leave f: NOK\n"));
}

TEST_F(DebugKitGuard, DoesNotJudgeWhatTheKitLogsDirectly) {
  {
    const CQOVDebugKitGuard guard(0, "f");
    kits().find(0)->error(1, "f", 2, "m");
  }
  EXPECT_THAT(capture_.text(), EndsWith("leave f: OK\n"));
}

TEST_F(DebugKitGuard, LogsThroughTheKitOfItsId) {
  kits().add(new CQOVDebugKit("MINE", 7));
  {
    CQOVDebugKitGuard guard(7, "f");
    guard.info(1, "f", 2, "m");
  }
  EXPECT_EQ(capture_.lines(), 3);
  EXPECT_THAT(capture_.text(), Not(HasSubstr("[QOVPUBLIC]")));
}

TEST_F(DebugKitGuard, LogsThroughThePublicKitWhenItsIdIsUnknown) {
  for (const int id : {7, -1}) {
    capture_.clear();
    { const CQOVDebugKitGuard guard(id, "f"); }
    EXPECT_EQ(capture_.lines(), 2);
    EXPECT_THAT(capture_.text(), HasSubstr("[QOVPUBLIC]"));
  }
}

TEST_F(DebugKitGuard, KeepsTheKitThatWasRegisteredAtItsConstruction) {
  kits().add(new CQOVDebugKit("MINE", 7));
  std::unique_ptr<CQOVDebugKit> removed;
  {
    const CQOVDebugKitGuard guard(7, "f");
    removed.reset(kits().remove(7));
  }
  EXPECT_THAT(capture_.text(), EndsWith("leave f: OK\n"));
  EXPECT_THAT(capture_.text(), Not(HasSubstr("[QOVPUBLIC]")));
}

TEST_F(DebugKitGuard, GoesOnThroughThePublicKitWhenItsKitIsDeletedMeanwhile) {
  kits().add(new CQOVDebugKit("MINE", 7));
  {
    CQOVDebugKitGuard guard(7, "f");
    delete kits().remove(7);
    capture_.clear();
    guard.info(1, "f", 2, "m");
  }
  EXPECT_EQ(capture_.lines(), 2);
  EXPECT_THAT(capture_.text(), HasSubstr("[QOVPUBLIC]"));
  EXPECT_THAT(capture_.text(), Not(HasSubstr("[MINE]")));
}

TEST_F(DebugKitGuard, IsSilentWithoutAnyKit) {
  const std::unique_ptr<CQOVDebugKit> removed(kits().remove(0));
  {
    CQOVDebugKitGuard guard(0, "f");
    guard.debug(1, "f", 2, "m");
    guard.info(1, "f", 2, "m");
    guard.warn(1, "f", 2, "m");
    guard.error(1, "f", 2, "m");
  }
  EXPECT_EQ(capture_.text(), "");
}

TEST_F(DebugKitGuard, TakesANullNameForAnEmptyOne) {
  { const CQOVDebugKitGuard guard(0, static_cast<const char*>(nullptr)); }
  EXPECT_THAT(capture_.text(), EndsWith("leave : OK\n"));
}

TEST_F(DebugKitGuard, LeavesErrnoAloneWhateverItsId) {
  for (const int id : {0, 7, 300, -1}) {
    errno = EIO;
    {
      CQOVDebugKitGuard guard(id, "f");
      EXPECT_EQ(errno, EIO) << id;
      guard.error(1, "f", 2, "%d", 3);
      EXPECT_EQ(errno, EIO) << id;
      { const CQOVDebugKit deleted("GONE", 8); }
      guard.error(1, "f", 2, "%d", 3);
      EXPECT_EQ(errno, EIO) << id;
    }
    EXPECT_EQ(errno, EIO) << id;
  }
}

}  // namespace
