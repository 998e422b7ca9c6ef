// The socket's file at the start and at the end.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <string_view>

#include "tests/modules/status/status_fixture.h"

namespace qov::test {
namespace {

using status::Descriptor;
using ::testing::HasSubstr;

/// A socket with that file, at which nobody listens yet.
Descriptor socketAt(const std::filesystem::path& path) {
  std::filesystem::create_directories(path.parent_path());
  Descriptor made(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.string().copy(address.sun_path, sizeof address.sun_path - 1);
  EXPECT_EQ(::bind(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return made;
}

ino_t fileNumber(const std::filesystem::path& path) {
  struct stat file {};
  EXPECT_EQ(::lstat(path.c_str(), &file), 0);
  return file.st_ino;
}

TEST_F(StatusTest, AStaleSocketFileIsReplaced) {
  socketAt(socket());
  startsWith();
  EXPECT_EQ(status()["process"], "qov_test_agent");
}

TEST_F(StatusTest, ASocketAtWhichSomebodyListensStays) {
  const Descriptor living = socketAt(socket());
  ASSERT_EQ(::listen(living.get(), 1), 0);
  const ino_t before = fileNumber(socket());
  failsToStart();
  EXPECT_THAT(agent.errors() + agent.log(),
              HasSubstr(socket().string() + ": another process listens there"));
  EXPECT_EQ(fileNumber(socket()), before);
}

TEST_F(StatusTest, AFileOfAnotherKindStays) {
  writeFile(socket(), "precious");
  failsToStart();
  EXPECT_THAT(agent.errors() + agent.log(), HasSubstr("that is no socket"));
  EXPECT_EQ(readFile(socket()), "precious");
}

TEST_F(StatusTest, ALinkStays) {
  std::filesystem::create_directories(socket().parent_path());
  std::filesystem::create_symlink("nowhere", socket());
  failsToStart();
  EXPECT_THAT(agent.errors() + agent.log(), HasSubstr("that is no socket"));
  EXPECT_TRUE(std::filesystem::is_symlink(socket()));
}

TEST_F(StatusTest, TheFolderIsForAllWhateverTheFileModeMaskSays) {
  agent.prepareChild([] { ::umask(077); });
  startsWith();
  struct stat folder {};
  ASSERT_EQ(::stat(socket().parent_path().c_str(), &folder), 0);
  EXPECT_EQ(folder.st_mode & 07777U, 0755U);
  ASSERT_EQ(::stat(socket().c_str(), &folder), 0);
  EXPECT_EQ(folder.st_mode & 07777U, 0600U);
}

TEST_F(StatusTest, ThePathIsTheConfiguredOne) {
  const std::filesystem::path other = agent.root().path() / "elsewhere" / "s";
  configure("Socket=" + other.string() + "\n");
  startsWith();
  EXPECT_TRUE(StatusClient(other).ask({{"request", "status"}}).contains("version"));
  EXPECT_FALSE(std::filesystem::exists(socket()));
}

TEST_F(StatusTest, APathThatIsNotAbsoluteIsRefused) {
  configure("Socket=run/s\n");
  failsToStart();
  EXPECT_THAT(agent.errors(), HasSubstr("[STATUS] Socket=run/s: no absolute path"));
}

TEST_F(StatusTest, ThePathMayBeAsLongAsItsNameBeforeItListensLeavesRoomFor) {
  constexpr std::size_t kLongest =
      sizeof(sockaddr_un::sun_path) - 1 - std::string_view(".new").size();
  const std::string folder = agent.root().path().string() + "/";
  const std::string longest = folder + std::string(kLongest - folder.size(), 'x');
  configure("Socket=" + longest + "\n");
  startsWith();
  EXPECT_TRUE(StatusClient(longest).ask({{"request", "status"}}).contains("version"));
}

TEST_F(StatusTest, APathThatIsTooLongIsToldAtTheStart) {
  configure("Socket=/tmp/" + std::string(99, 'x') + "\n");
  failsToStart();
  EXPECT_THAT(agent.errors() + agent.log(), HasSubstr("longer than a socket's may be"));
}

TEST_F(StatusTest, TheFileGoesWithTheAgent) {
  startsWith();
  ASSERT_TRUE(std::filesystem::exists(socket()));
  stopsInOrder();
  EXPECT_TRUE(std::filesystem::is_empty(socket().parent_path()));
}

TEST_F(StatusTest, AFileThatSomebodyElseHasPutThereStays) {
  startsWith();
  std::filesystem::remove(socket());
  const Descriptor other = socketAt(socket());
  stopsInOrder();
  EXPECT_TRUE(std::filesystem::exists(socket()));
}

}  // namespace
}  // namespace qov::test
