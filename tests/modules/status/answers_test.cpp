// What requests are answered, without an agent.
#include "modules/status/answers.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <csignal>

#include "tests/support/this_process.h"

namespace qov::status {
namespace {

class StatusAnswers : public ::testing::Test {
 protected:
  StatusAnswers() { test::thisProcess(); }

  std::optional<std::string> answer(const std::string& request) {
    Kept kept;
    return Answers(0).answer(request, {}, kept);
  }
};

TEST_F(StatusAnswers, AreOneLineEach) {
  const std::optional<std::string> line = answer(R"({"request": "status"})");
  ASSERT_TRUE(line);
  EXPECT_EQ(line->find('\n'), line->size() - 1);
  EXPECT_NE(line->find("\"version\":\""), std::string::npos);
}

/// Its default ends a process.
TEST_F(StatusAnswers, AProcessThatDoesNotTakeTheSignalIsNotSentIt) {
  ASSERT_NE(::signal(SIGUSR1, SIG_DFL), SIG_ERR);
  EXPECT_EQ(answer(R"({"request": "reload"})"),
            "{\"error\":\"this process does not take SIGUSR1\"}\n");
  ::signal(SIGUSR1, [](int) {});
  EXPECT_EQ(answer(R"({"request": "reload"})"), "{\"reload\":\"requested\"}\n");
  ::signal(SIGUSR1, SIG_DFL);
}

TEST_F(StatusAnswers, TakeWhatIsJsonToTheLetter) {
  EXPECT_TRUE(answer(R"( {"request": "modules", "more": [[1]]} )"));
  for (const char* request :
       {R"({"request": "modules"} x)", R"({"request": "modules",})", R"({'request': "modules"})",
        R"({"request": "modules", "request": "modules"})", R"({"request": "modules"} // why)",
        R"(["request"])", R"({"request": null})", "{", ""}) {
    EXPECT_FALSE(answer(request)) << request;
  }
}

TEST_F(StatusAnswers, TakeNoRequestThatIsNestedDeeply) {
  const auto nested = [](std::size_t levels) {
    return R"({"request": "modules", "more": )" + std::string(levels, '[') +
           std::string(levels, ']') + "}";
  };
  EXPECT_TRUE(answer(nested(10)));
  EXPECT_FALSE(answer(nested(100)));
  EXPECT_FALSE(answer(nested(2000)));
}

}  // namespace
}  // namespace qov::status
