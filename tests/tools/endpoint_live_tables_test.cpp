#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "tests/tools/endpoint_fixture.h"
#include "tools/qov-endpoint/proc_file.h"

namespace qov::test {
namespace {

using testing::HasSubstr;

constexpr std::uint32_t kInterfaces = 1;
constexpr std::uint32_t kMounts = 2;
constexpr std::uint32_t kProcesses = 3;

/// A child of this process that waits until the object goes or is told to end.
class Child {
 public:
  Child() : pid_(::fork()) {
    if (pid_ == 0) {
      for (;;) {
        ::pause();
      }
    }
  }
  ~Child() { end(); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  std::uint64_t pid() const { return number_; }
  void end() {
    killChild(pid_);
    pid_ = -1;
  }

 private:
  pid_t pid_;
  const std::uint64_t number_ = static_cast<std::uint64_t>(pid_);
};

class EndpointLiveTable : public EndpointTest {
 protected:
  using Rows = std::vector<std::pair<std::uint64_t, std::string>>;

  /// The records of the answer.
  static std::string ask(const EndpointClient& asking, const std::string& records) {
    const std::string got = asking.exchange(message(1, records));
    EXPECT_EQ(got.substr(0, 24), message(1, "").substr(0, 24));
    return got.substr(std::min<std::size_t>(got.size(), 28));
  }
  /// The value of the cursor cell, which stands in front of the status of 5 bytes.
  static std::uint64_t keyOf(const std::string& row) {
    for (const int width : {1, 2, 4, 8}) {
      const std::size_t from = row.size() - 5 - static_cast<std::size_t>(width);
      std::uint64_t key = 0;
      std::memcpy(&key, row.data() + from, static_cast<std::size_t>(width));
      if (row.substr(from - 4) == cursor(key, width) + status(0)) {
        return key;
      }
    }
    ADD_FAILURE() << "no cursor in " << testing::PrintToString(row);
    return UINT64_MAX;
  }
  /// The rest of a table behind `record`.
  static Rows walk(const EndpointClient& asking, std::uint32_t table, std::string row) {
    Rows rows;
    while ((row = ask(asking, row)) != endOf(table)) {
      rows.emplace_back(keyOf(row), row);
      if (rows.back().first == UINT64_MAX) {
        break;
      }
    }
    return rows;
  }
  static Rows walk(const EndpointClient& asking, std::uint32_t table) {
    return walk(asking, table, record(kGetNextOf + table));
  }
  static bool has(const Rows& rows, std::uint64_t key) {
    return std::any_of(rows.begin(), rows.end(), [&](const auto& row) { return row.first == key; });
  }

  EndpointClient clientOfLiveTables() {
    EXPECT_TRUE(endpoint.start({"--quiet"})) << endpoint.errors();
    return client();
  }

  const EndpointClient asker_ = clientOfLiveTables();
};

TEST_F(EndpointLiveTable, OfInterfacesHasTheirNamesByIndex) {
  const Rows rows = walk(asker_, kInterfaces);
  ASSERT_FALSE(rows.empty());
  for (const auto& [index, row] : rows) {
    char name[IF_NAMESIZE] = {};
    ASSERT_NE(::if_indextoname(static_cast<unsigned>(index), name), nullptr);
    EXPECT_THAT(row, HasSubstr(text(1, name)));
  }
}

TEST_F(EndpointLiveTable, OfInterfacesShowsTheLoopbackInterface) {
  const unsigned index = ::if_nametoindex("lo");
  if (index == 0) {
    GTEST_SKIP() << "this machine has no interface lo";
  }
  const std::string row = ask(asker_, record(kGetOf + kInterfaces, number(4093, index, 4)));
  // Up, without a hardware address, and with the mtu behind.
  EXPECT_THAT(row, HasSubstr(text(1, "lo") + cell(2, 5, "\1") + std::string("\x43\x00", 2)));
}

TEST_F(EndpointLiveTable, OfMountsHasTheirPointsById) {
  std::istringstream lines(readFile("/proc/self/mountinfo"));
  const Rows rows = walk(asker_, kMounts);
  std::string line;
  std::size_t compared = 0;
  for (const auto& [id, row] : rows) {
    EXPECT_EQ(row.substr(10, 2), le(1 << 4 | 2, 2)) << "the first cell is a text of tag 1";
  }
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::uint64_t id = 0;
    std::string skipped;
    std::string point;
    fields >> id >> skipped >> skipped >> skipped >> point;
    // What was mounted or taken away in between is in one of both only.
    const auto row =
        std::find_if(rows.begin(), rows.end(), [&](const auto& each) { return each.first == id; });
    if (point.find('\\') == std::string::npos && row != rows.end()) {
      EXPECT_THAT(row->second, HasSubstr(text(1, point)));
      ++compared;
    }
  }
  EXPECT_GT(compared, 0U);
}

TEST_F(EndpointLiveTable, OfProcessesShowsThisProcess) {
  const std::string row =
      ask(asker_, record(kGetOf + kProcesses, cursor(static_cast<std::uint64_t>(::getpid()), 8)));
  std::string name = readFile("/proc/self/comm");
  name.pop_back();
  EXPECT_THAT(row, HasSubstr(text(1, name)));
  EXPECT_EQ(keyOf(row), static_cast<std::uint64_t>(::getpid()));
}

TEST_F(EndpointLiveTable, IsWalkedInTheOrderOfItsKeysWhileItChanges) {
  constexpr int kChanges = 10;
  std::unique_ptr<Child> child;
  int changes = 0;
  std::uint64_t last = 0;
  std::string row = record(kGetNextOf + kProcesses);
  while ((row = ask(asker_, row)) != endOf(kProcesses)) {
    ASSERT_GT(keyOf(row), last);
    last = keyOf(row);
    // One process comes and the one before goes.
    if (++changes <= kChanges) {
      child = std::make_unique<Child>();
    }
  }
  EXPECT_GE(last, static_cast<std::uint64_t>(endpoint.pid()));
}

TEST_F(EndpointLiveTable, IsReadOnceForAWalk) {
  Child child;
  const std::string first = ask(asker_, record(kGetNextOf + kProcesses));
  child.end();
  EXPECT_TRUE(has(walk(asker_, kProcesses, first), child.pid()));
  EXPECT_FALSE(has(walk(asker_, kProcesses), child.pid()));
}

TEST_F(EndpointLiveTable, IsReadAnewForOneRow) {
  Child child;
  const std::string wanted = record(kGetOf + kProcesses, cursor(child.pid(), 8));
  EXPECT_EQ(keyOf(ask(asker_, wanted)), child.pid());
  child.end();
  EXPECT_EQ(asker_.exchange(message(1, wanted)), message(1, "", 3));
}

TEST_F(EndpointLiveTable, IsReadForOneRowWithoutAChangeForAWalk) {
  const std::string first = ask(asker_, record(kGetNextOf + kProcesses));
  const Child child;
  const std::string wanted = record(kGetOf + kProcesses, cursor(child.pid(), 8));
  EXPECT_EQ(keyOf(ask(asker_, wanted)), child.pid());
  EXPECT_FALSE(has(walk(asker_, kProcesses, first), child.pid()));
}

TEST_F(EndpointLiveTable, IsWalkedOnBehindARowThatIsGone) {
  Child child;
  std::string row = record(kGetNextOf + kProcesses);
  do {
    row = ask(asker_, row);
    ASSERT_NE(row, endOf(kProcesses));
  } while (keyOf(row) != child.pid());
  child.end();
  // Another connection has no reading of the table yet.
  for (const auto& [key, rest] : walk(client(), kProcesses, row)) {
    EXPECT_GT(key, child.pid());
  }
}

TEST(EndpointProcFile, ThatCannotBeReadAfterItWasOpenedIsEmpty) {
  EXPECT_EQ(endpoint::readProcFile("/proc/self"), "");
}

}  // namespace
}  // namespace qov::test
