// The file of metrics, without an agent.
#include "modules/status/metrics_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qovpub/qov_task_mgr.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "modules/status/metrics_task.h"
#include "tests/support/files.h"
#include "tests/support/stderr_capture.h"
#include "tests/support/this_process.h"

namespace qov::status {
namespace {

namespace fs = std::filesystem;

class StatusMetricsFile : public ::testing::Test {
 protected:
  std::string path() const { return folder_.file("agent.prom"); }
  std::size_t filesThere() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder_.path()), fs::directory_iterator()));
  }

  test::TemporaryDirectory folder_;
};

TEST_F(StatusMetricsFile, IsReplacedWhole) {
  MetricsFile file(path());
  EXPECT_EQ(file.write("one"), 0);
  EXPECT_EQ(test::readFile(path()), "one");
  const fs::path reader = folder_.file("old");
  fs::create_hard_link(path(), reader);
  EXPECT_EQ(file.write("two"), 0);
  EXPECT_EQ(test::readFile(path()), "two");
  EXPECT_EQ(test::readFile(reader), "one");  // whoever has opened it
  EXPECT_EQ(filesThere(), 2u);
}

TEST_F(StatusMetricsFile, IsForAllToRead) {
  const mode_t mask = ::umask(0077);
  MetricsFile file(path());
  EXPECT_EQ(file.write("one"), 0);
  ::umask(mask);
  struct stat made {};
  ASSERT_EQ(::stat(path().c_str(), &made), 0);
  EXPECT_EQ(made.st_mode & 07777, 0644u);
}

TEST_F(StatusMetricsFile, GoesWithWhoeverWroteIt) {
  { EXPECT_EQ(MetricsFile(path()).write("one"), 0); }
  EXPECT_EQ(filesThere(), 0u);
}

TEST_F(StatusMetricsFile, OfSomebodyElseStays) {
  test::writeFile(path(), "old");
  { const MetricsFile unused(path()); }
  EXPECT_EQ(test::readFile(path()), "old");
}

TEST_F(StatusMetricsFile, WhatAKilledAgentLeftDoesNoHarm) {
  const std::string precious = folder_.file("precious");
  test::writeFile(precious, "precious");
  fs::create_symlink(precious, path() + ".new");
  MetricsFile file(path());
  EXPECT_EQ(file.write("one"), 0);
  EXPECT_EQ(test::readFile(path()), "one");
  EXPECT_EQ(test::readFile(precious), "precious");
}

TEST_F(StatusMetricsFile, TellsWhyItCannotBeWritten) {
  EXPECT_EQ(MetricsFile(folder_.file("nowhere/agent.prom")).write("one"), ENOENT);
  fs::create_directory(path());
  EXPECT_EQ(MetricsFile(path()).write("one"), EISDIR);
  EXPECT_EQ(filesThere(), 1u);
  EXPECT_EQ(MetricsFile("/dev/full/agent.prom").write("one"), ENOTDIR);
}

class Module : public CQOV_TaskMgr {
 public:
  Module() : CQOV_TaskMgr(77, 0, "metrics") {}
  CQOV_Task* createTask() override { return nullptr; }
};

TEST_F(StatusMetricsFile, ThatCannotBeWrittenIsToldOfOnceUntilItIsWrittenAgain) {
  test::thisProcess();
  Module module;
  Settings settings;
  settings.metricsFile = folder_.file("later/agent.prom");
  MetricsTask task(&module, settings, [] { return std::string("text"); });
  StderrCapture log;
  task.tick();
  task.tick();
  task.tick();
  fs::create_directory(folder_.file("later"));
  task.tick();
  task.tick();
  fs::remove_all(folder_.file("later"));
  task.tick();
  task.tick();
  EXPECT_EQ(log.count("Failed to write the metrics: " + settings.metricsFile +
                      ": No such file or directory"),
            2);
  EXPECT_EQ(log.count("The metrics are written again: " + settings.metricsFile), 1);
}

}  // namespace
}  // namespace qov::status
