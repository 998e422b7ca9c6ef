#include <sstream>
#include <string>

#include "tests/module/module_fixture.h"
#include "tests/module/package_blocks.h"

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace qov::test {
namespace {

/// Modules whose classes have the same names.
class ModuleClasses : public ModuleTest {
 protected:
  ::testing::AssertionResult handles(unsigned gid, const std::string& event) {
    std::unique_ptr<CQOV_MsgPackage> message = messageTo(gid, 1);
    BlockPtr block = blockOf(message.get());
    if (loader().sendMsg(static_cast<u_short>(gid), block.get()) != 0) {
      return ::testing::AssertionFailure() << "module " << gid << " takes no message";
    }
    static_cast<void>(block.release());
    static_cast<void>(message.release());
    return waitForEvent(event) ? ::testing::AssertionSuccess()
                               : ::testing::AssertionFailure() << log.text();
  }

  /// The warnings of a class that comes from elsewhere, on whichever thread.
  std::vector<std::string> warnings() const {
    std::vector<std::string> found;
    std::istringstream lines(log.text());
    for (std::string line; std::getline(lines, line);) {
      if (line.find("[65810][WARN]") != std::string::npos) {
        found.push_back(line);
      }
    }
    return found;
  }

  /// One warning, which names both libraries and the class.
  void warnsOnce(const std::string& one, const std::string& other, const std::string& itsClass) {
    // Nobody waits for the threads that make the workers.
    EXPECT_TRUE(log.waitFor("[65810][WARN]"));
    EXPECT_THAT(warnings(),
                ElementsAre(AllOf(HasSubstr(itsClass), HasSubstr("/libqovt_" + one + ".so"),
                                  HasSubstr("/libqovt_" + other + ".so"))));
  }
};

TEST_F(ModuleClasses, OfManagersWithOneNameAreWarnedOf) {
  loads({"shown_one", "shown_two"});
  warnsOnce("shown_one", "shown_two",
            "runs code of another module: its class ShownManager comes from");
}

TEST_F(ModuleClasses, OfWorkersWithOneNameAreWarnedOf) {
  loads({"shown_worker_one", "shown_worker_two"});
  warnsOnce("shown_worker_one", "shown_worker_two",
            "runs code of another module: its class ShownWorkerOfTwo comes from");
}

TEST_F(ModuleClasses, ThatAreHiddenAreEachModulesOwn) {
  loads({"hidden_one", "hidden_two"});
  EXPECT_TRUE(handles(23, "hidden_one got a message"));
  EXPECT_TRUE(handles(24, "hidden_two got a message"));
  EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(ModuleClasses, OfALibraryThatModulesShareAreNobodysOwn) {
  loads({"sharing_one", "sharing_two"});
  EXPECT_THAT(warnings(), IsEmpty());
}

}  // namespace
}  // namespace qov::test
