#include "frame/env/env_proc_name.h"

#include <gtest/gtest.h>
#include <qovpub/qov_utility.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>

#include "tests/support/files.h"

using qov::procNameFromPath;
using qov::test::TemporaryDirectory;
using qov::test::writeFile;
namespace fs = std::filesystem;

namespace {

// What the helper program prints when it runs from `path`, in the directory that `path` is in.
// `environment` are assignments before the command.
std::string outputWhenRunFrom(const fs::path& path, const std::string& environment = "") {
  fs::create_directories(path.parent_path());
  fs::copy_file(QOV_PRINT_PROC_INFO, path);
  const std::string command =
      "cd '" + path.parent_path().string() + "' && " + environment + " '" + path.string() + "'";
  std::string output;
  FILE* pipe = ::popen(command.c_str(), "r");
  std::array<char, 512> part;
  while (pipe != nullptr && std::fgets(part.data(), part.size(), pipe) != nullptr) {
    output += part.data();
  }
  EXPECT_EQ(::pclose(pipe), 0);
  return output;
}

// The name that the helper program has when it runs from `path`.
std::string nameWhenRunFrom(const fs::path& path) {
  const std::string output = outputWhenRunFrom(path);
  const std::string label = "name ";
  return output.compare(0, label.size(), label) == 0
             ? output.substr(label.size(), output.find('\n') - label.size())
             : "the program printed: " + output;
}

}  // namespace

TEST(ProcName, IsTheBaseNameWithoutItsLastExtension) {
  EXPECT_EQ(procNameFromPath("/opt/agent/bin/devagent.bin"), "devagent");
  EXPECT_EQ(procNameFromPath("/usr/bin/devagent"), "devagent");
  EXPECT_EQ(procNameFromPath("/usr/bin/a.b.c"), "a.b");
  EXPECT_EQ(procNameFromPath("a.b.c"), "a.b");
  EXPECT_EQ(procNameFromPath("devagent"), "devagent");
  EXPECT_EQ(procNameFromPath("/devagent."), "devagent");
}

TEST(ProcName, IsEmptyWhenTheOnlyDotLiesInADirectory) {
  EXPECT_EQ(procNameFromPath("/opt/rel1.2/devagent"), "");
  EXPECT_EQ(procNameFromPath("/opt/rel1.2/devagent.bin"), "devagent");
}

TEST(ProcName, IsEmptyForAHiddenFileOrNoFile) {
  EXPECT_EQ(procNameFromPath("/opt/.devagent"), "");
  EXPECT_EQ(procNameFromPath("/opt/"), "");
  EXPECT_EQ(procNameFromPath(""), "");
}

TEST(ProcName, TakesABackslashAsSeparatorWhenThereIsNoSlash) {
  EXPECT_EQ(procNameFromPath("C:\\agent\\devagent.exe"), "devagent");
  EXPECT_EQ(procNameFromPath("/opt/x\\devagent.exe"), "x\\devagent");
}

TEST(ProcName, ComesFromTheRunningExecutable) {
  const TemporaryDirectory directory;
  EXPECT_EQ(nameWhenRunFrom(directory.path() / "devagent"), "devagent");
  EXPECT_EQ(nameWhenRunFrom(directory.path() / "other.agent.bin"), "other.agent");
  EXPECT_EQ(nameWhenRunFrom(directory.path() / "rel1.2" / "devagent"), "");
}

TEST(ProcName, IsWhatAllOfTheProcessesFilesAreNamedAfter) {
  const TemporaryDirectory directory;
  // A root of another system, which becomes a relative directory here.
  writeFile(directory.path() / "C:/qov/conf/devagent/devagent.cfg", "[QOV_GLOBAL]\nPROC_PID=9\n");
  EXPECT_EQ(outputWhenRunFrom(directory.path() / "devagent.bin", "QOV_ROOT='C:\\qov\\'"),
            "name devagent\n"
            "pid 9\n"
            "process devagent\n"
            "cfgPath C:/qov//conf/devagent/\n"
            "cfgFile C:/qov//conf/devagent/devagent.cfg\n"
            "logPath C:/qov//log\n"
            "logFile C:/qov//log/devagent.log\n");
}

TEST(ProcName, IsCutWithThePathAfter260Bytes) {
  const TemporaryDirectory directory;
  const std::size_t taken = directory.path().string().size() + 1;
  // A base name that begins at byte 240 of the path.
  const fs::path deep = directory.path() / std::string(240 - taken - 1, 'd');
  EXPECT_EQ(nameWhenRunFrom(deep / std::string(20, 'n')), std::string(20, 'n'));
  EXPECT_EQ(nameWhenRunFrom(deep / std::string(21, 'm')), std::string(20, 'm'));
}

TEST(ProcName, ReplacesWhatTheCallerHad) {
  std::string name = "before";
  CProcInfo::getProcName(name);
  EXPECT_EQ(name, procNameFromPath(fs::read_symlink("/proc/self/exe").string()));
}
