// Who may ask.
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/modules/status/status_fixture.h"

namespace qov::test {
namespace {

constexpr uid_t kStranger = 60001;
constexpr gid_t kGroup = 60002;
constexpr gid_t kOtherGroup = 60003;

mode_t modeOf(const std::filesystem::path& file) {
  struct stat status {};
  ::stat(file.c_str(), &status);
  return status.st_mode & 07777;
}

class StatusPeers : public StatusTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "only root can ask as another user";
    }
    // A stranger must get as far as the socket.
    ::chmod(agent.root().path().c_str(), 0755);
  }

  enum Result { kAnswered = 0, kClosed = 1, kNotConnected = 2 };

  /// What comes of it when the stranger, in these groups, asks.
  int askAsStranger(gid_t group, const std::vector<gid_t>& others = {}) {
    const pid_t child = ::fork();
    if (child == 0) {
      const bool stranger = ::setgroups(others.size(), others.data()) == 0 &&
                            ::setresgid(group, group, group) == 0 &&
                            ::setresuid(kStranger, kStranger, kStranger) == 0;
      ::_exit(stranger ? ask() : -1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WEXITSTATUS(status);
  }

 private:
  int ask() {
    try {
      StatusClient asking = client();
      asking.send("{\"request\":\"modules\"}\n");
      return asking.isClosed() ? kClosed : kAnswered;
    } catch (const std::exception&) {
      return kNotConnected;
    }
  }
};

TEST_F(StatusPeers, AStrangerCannotConnect) {
  startsWith();
  EXPECT_EQ(modeOf(socket()), 0600u);
  EXPECT_EQ(askAsStranger(kGroup), kNotConnected);
}

TEST_F(StatusPeers, AStrangerIsRefusedWhateverTheMode) {
  configure("Mode=0666\n");
  startsWith();
  EXPECT_EQ(modeOf(socket()), 0666u);
  EXPECT_EQ(askAsStranger(kGroup), kClosed);
  EXPECT_EQ(count("refused"), 1);
}

TEST_F(StatusPeers, TheOwnerMayAsk) {
  configure("Owner=" + std::to_string(kStranger) + "\n");
  startsWith();
  EXPECT_EQ(askAsStranger(kGroup), kAnswered);
}

TEST_F(StatusPeers, MembersOfTheGroupMayAskAndNobodyElse) {
  configure("Group=" + std::to_string(kGroup) + "\n");
  startsWith();
  EXPECT_EQ(modeOf(socket()), 0660u);
  EXPECT_EQ(askAsStranger(kGroup), kAnswered);
  EXPECT_EQ(askAsStranger(kOtherGroup, {kGroup}), kAnswered);
  EXPECT_EQ(askAsStranger(kOtherGroup), kNotConnected);
}

}  // namespace
}  // namespace qov::test
