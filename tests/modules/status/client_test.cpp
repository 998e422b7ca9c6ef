// One connection, without an agent.
#include "modules/status/client.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace qov::status {
namespace {

class StatusConnection : public ::testing::Test {
 protected:
  StatusConnection() {
    int ends[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
    own_ = Descriptor(ends[0]);
    client_ = std::make_unique<Client>(Descriptor(ends[1]), std::chrono::hours(1));
  }

  Client::State sends(const std::string& bytes) {
    EXPECT_EQ(::send(own_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
    return advances();
  }

  Client::State advances() {
    return client_->advance([this](std::string_view request) -> std::optional<std::string> {
      requests_.emplace_back(request);
      return request == "bad" ? std::nullopt : std::optional(answer_);
    });
  }

  std::size_t receivesAll() {
    std::string bytes(1048576, '\0');
    std::size_t all = 0;
    for (ssize_t count = 0;
         (count = ::recv(own_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT)) > 0;) {
      all += static_cast<std::size_t>(count);
    }
    return all;
  }

  Descriptor own_;
  std::unique_ptr<Client> client_;
  std::string answer_ = "yes\n";
  std::vector<std::string> requests_;
};

using Requests = std::vector<std::string>;

TEST_F(StatusConnection, ARequestMayComeInPieces) {
  EXPECT_EQ(sends("on"), Client::State::kGoesOn);
  EXPECT_TRUE(requests_.empty());
  EXPECT_EQ(sends("e\ntwo\nthr"), Client::State::kGoesOn);
  EXPECT_EQ(advances(), Client::State::kGoesOn);
  EXPECT_EQ(requests_, (Requests{"one", "two"}));
  EXPECT_EQ(receivesAll(), 2 * answer_.size());
}

TEST_F(StatusConnection, NothingIsReadWhileAnAnswerWaits) {
  answer_ = std::string(8000000, 'x');
  EXPECT_EQ(sends("one\ntwo\n"), Client::State::kGoesOn);
  EXPECT_EQ(requests_, Requests{"one"});
  EXPECT_EQ(client_->events(), POLLOUT);
  std::size_t received = 0;
  while (received < 2 * answer_.size()) {
    received += receivesAll();
    ASSERT_EQ(advances(), Client::State::kGoesOn);
  }
  EXPECT_EQ(requests_, (Requests{"one", "two"}));
  EXPECT_EQ(client_->events(), POLLIN);
}

TEST_F(StatusConnection, AnAnswerThatIsTakenGivesMoreTime) {
  const auto before = client_->deadline();
  sends("half");
  EXPECT_EQ(client_->deadline(), before);
  sends(" a request\n");
  EXPECT_GT(client_->deadline(), before);
}

TEST_F(StatusConnection, TheLongestRequestIsTakenAndALongerOneIsNot) {
  const std::string longest(Client::kLongestRequest, 'r');
  EXPECT_EQ(sends(longest + "\n"), Client::State::kGoesOn);
  EXPECT_EQ(requests_, Requests{longest});
  EXPECT_EQ(sends(longest + "r"), Client::State::kMalformed);
  EXPECT_EQ(requests_.size(), 1u);
}

TEST_F(StatusConnection, WhatIsNoRequestEndsIt) {
  EXPECT_EQ(sends("bad\none\n"), Client::State::kMalformed);
  EXPECT_EQ(requests_, Requests{"bad"});
}

TEST_F(StatusConnection, OneRequestIsServedAtATime) {
  EXPECT_FALSE(client_->isReady());
  EXPECT_EQ(sends("one\ntwo\nthree\nfo"), Client::State::kGoesOn);
  EXPECT_EQ(requests_, Requests{"one"});
  for (const std::size_t served : {2U, 3U}) {
    ASSERT_TRUE(client_->isReady());
    EXPECT_EQ(advances(), Client::State::kGoesOn);
    EXPECT_EQ(requests_.size(), served);
  }
  EXPECT_FALSE(client_->isReady());
  EXPECT_EQ(sends("ur\n"), Client::State::kGoesOn);
  EXPECT_EQ(requests_.back(), "four");
}

TEST_F(StatusConnection, ARequestThatIsHereWaitsForTheAnswerBeforeIt) {
  answer_ = std::string(8000000, 'x');
  sends("one\ntwo\n");
  EXPECT_FALSE(client_->isReady());
}

TEST_F(StatusConnection, ItEndsWithTheOtherEnd) {
  sends("one\n");
  receivesAll();
  own_ = Descriptor();
  EXPECT_EQ(advances(), Client::State::kGone);
}

TEST_F(StatusConnection, AnEndInTheMiddleOfARequestCutsItOff) {
  sends("on");
  own_ = Descriptor();
  EXPECT_EQ(advances(), Client::State::kCutOff);
}

TEST_F(StatusConnection, AnEndWithTheAnswerUnreadCutsItOff) {
  sends("one\n");
  own_ = Descriptor();
  EXPECT_EQ(advances(), Client::State::kCutOff);
}

TEST_F(StatusConnection, AnEndBeforeTheWholeAnswerIsTakenCutsItOff) {
  answer_ = std::string(8000000, 'x');
  sends("one\n");
  own_ = Descriptor();
  EXPECT_EQ(advances(), Client::State::kCutOff);
}

}  // namespace
}  // namespace qov::status
