#include <dirent.h>

#include <cerrno>

#include "tests/module/module_fixture.h"
#include "tests/support/failing_allocations.h"

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

namespace qov::test {
namespace {

class ModuleList : public ModuleTest {
 protected:
  void addFile(const std::string& name) const {
    AgentRoot::write(thisProcess().confDirectory() / name, "");
    added_.push_back(name);
  }
  ~ModuleList() override {
    for (const std::string& name : added_) {
      std::filesystem::remove(thisProcess().confDirectory() / name);
    }
  }

  std::list<std::string> list() {
    std::list<std::string> names;
    loader().getModuleList(names);
    return names;
  }

 private:
  mutable std::vector<std::string> added_;
};

TEST_F(ModuleList, TakesTheNamesThatEndInTheirFirstMarker) {
  for (const char* const name : {"a.mod", "b.txt", ".mod", "c.mod.bak", "d.mod.mod", "e.mo"}) {
    addFile(name);
  }
  EXPECT_THAT(list(), ElementsAre("a"));
}

TEST_F(ModuleList, TakesDirectoriesToo) {
  addFile("a.mod");
  std::filesystem::create_directory(thisProcess().confDirectory() / "folder.mod");
  EXPECT_THAT(list(), UnorderedElementsAre("a", "folder"));
}

TEST_F(ModuleList, KeepsTheOrderOfTheDirectory) {
  std::list<std::string> expected;
  for (int i = 0; i < 40; ++i) {
    addFile("m" + std::to_string(i) + ".mod");
  }
  DIR* const dir = ::opendir(thisProcess().confDirectory().c_str());
  ASSERT_NE(dir, nullptr);
  while (const dirent* const entry = ::readdir(dir)) {
    const std::string name = entry->d_name;
    if (name.front() == 'm') {
      expected.push_back(name.substr(0, name.size() - 4));
    }
  }
  ::closedir(dir);
  EXPECT_EQ(list(), expected);
}

TEST_F(ModuleList, AppendsToWhatIsThere) {
  addFile("a.mod");
  std::list<std::string> names{"before"};
  loader().getModuleList(names);
  EXPECT_THAT(names, ElementsAre("before", "a"));
}

TEST_F(ModuleList, IsNotBegunWithoutMemoryForItsNames) {
  struct ListNode {
    void* links[2];
    std::string name;
  };
  addFile("a.mod");
  list();  // The process configuration is read once.
  std::list<std::string> names{"before"};
  {
    const auto failing = FailingAllocations::ofSize(sizeof(ListNode));
    errno = 0;
    loader().getModuleList(names);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_THAT(names, ElementsAre("before"));
  EXPECT_THAT(messages("ERR"),
              ElementsAre("Failed to list modules of " + thisProcess().confDirectory().string() +
                          "/: Cannot allocate memory"));
}

TEST_F(ModuleList, WithoutMemoryForTheDirectorysNameIsLoggedAndEmpty) {
  addFile("a.mod");
  list();  // The process configuration is read once.
  std::list<std::string> names;
  {
    const FailingAllocations failing(0, 1);
    errno = 0;
    loader().getModuleList(names);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_TRUE(names.empty());
  EXPECT_THAT(messages("ERR"), ElementsAre("Failed to list modules: Cannot allocate memory"));
}

TEST_F(ModuleList, OfAMissingDirectoryIsLoggedAndEmpty) {
  const std::filesystem::path conf = thisProcess().confDirectory();
  const std::filesystem::path aside = conf.string() + "_aside";
  list();  // The process configuration is read once, from this directory.
  log.clear();
  std::filesystem::rename(conf, aside);
  const bool loaded = loader().load();
  std::filesystem::rename(aside, conf);
  EXPECT_FALSE(loaded);
  EXPECT_THAT(messages("ERR"), ElementsAre("Failed to open " + conf.string() + "/",
                                           "Failed to list the modules: " + conf.string() +
                                               "/: No such file or directory",
                                           "Failed to load module, because module is empty!"));
}

TEST_F(ModuleList, WithoutAMarkerMakesLoadFail) {
  EXPECT_FALSE(loader().load());
  EXPECT_THAT(messages("ERR"),
              ElementsAre("Failed to find a module: " + thisProcess().confDirectory().string() +
                              "/: the directory has no file <module>.mod",
                          "Failed to load module, because module is empty!"));
}

}  // namespace
}  // namespace qov::test
