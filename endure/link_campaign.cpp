// Links whose endpoint, a qov-endpoint, is behind proxies that do harm in every way that a network
// and a faulty endpoint have. Every exchange has to end with its documented result, the one behind
// the fault has to work, and no request may ever get another one's answer.
#include <ace/Log_Msg.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <sstream>
#include <thread>
#include <vector>

#include "endure/campaign.h"
#include "endure/link_lane.h"
#include "tests/support/counts.h"
#include "tests/tools/endpoint_process.h"

namespace qov::endure {
namespace {

constexpr int kPatientLanes = 2;
/// They mostly wait.
constexpr int kHastyLanes = 10;

std::string tables() {
  std::ostringstream text;
  text << R"({"tables": [{"name": "rows", "number": )" << kTable << R"(, "rows": [)";
  for (std::uint64_t key = 1; key <= kRows; ++key) {
    text << (key == 1 ? "" : ",") << "\n"
         << R"({"key": )" << key << R"(, "cells": [{"tag": 1, "type": "String", "value": ")"
         << std::string(lengthOfRow(key), 'x') << R"("}]})";
  }
  text << "]}]}";
  return text.str();
}

class LinkCampaign {
 public:
  explicit LinkCampaign(Campaign& campaign) : campaign_(campaign) {}
  ~LinkCampaign() { tellKinds(); }
  LinkCampaign(const LinkCampaign&) = delete;
  LinkCampaign& operator=(const LinkCampaign&) = delete;

  void run() {
    // Records are made, and thrown away.
    ACE_Log_Msg::instance()->priority_mask(LM_ERROR | LM_WARNING, ACE_Log_Msg::PROCESS);
    ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::STDERR);
    if (!endpoint_.start({"--quiet", "--tables", endpoint_.file("tables.json", tables())})) {
      campaign_.fail("the endpoint does not start: " + endpoint_.errors());
      return;
    }
    const std::string own = "/proc/self/fd";
    const std::string endpoints = "/proc/" + std::to_string(endpoint_.pid()) + "/fd";
    const std::ptrdiff_t ownBefore = test::entriesOf(own);
    const std::ptrdiff_t endpointsBefore = test::entriesOf(endpoints);
    runLanes();
    if (const std::ptrdiff_t left = test::entriesOf(own) - ownBefore; left != 0) {
      campaign_.fail(std::to_string(left) + " descriptors are left");
    }
    if (!test::waitUntil([&] { return test::entriesOf(endpoints) == endpointsBefore; })) {
      campaign_.fail("the endpoint keeps descriptors of connections that are gone");
    }
    if (endpoint_.end(SIGTERM).exitStatus != 0) {
      campaign_.fail("the endpoint does not end in order: " + endpoint_.errors());
    }
  }

 private:
  void runLanes() {
    std::vector<std::unique_ptr<LinkLane>> lanes;
    lanes.reserve(kPatientLanes + kHastyLanes);
    for (int i = 0; i < kPatientLanes + kHastyLanes; ++i) {
      lanes.push_back(std::make_unique<LinkLane>(campaign_, figures_, endpoint_.port(),
                                                 i >= kPatientLanes, campaign_.random()()));
    }
    std::atomic<bool> goesOn{true};
    std::vector<std::thread> threads;
    threads.reserve(lanes.size());
    for (const auto& lane : lanes) {
      threads.emplace_back([&lane, &goesOn] { lane->run(goesOn); });
    }
    while (campaign_.goesOn()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      figures_.updateRarest();
      giveUpIfOneHangs(lanes);
    }
    goesOn = false;
    for (std::thread& thread : threads) {
      thread.join();
    }
  }

  /// A lane that hangs cannot be joined.
  void giveUpIfOneHangs(const std::vector<std::unique_ptr<LinkLane>>& lanes) {
    constexpr std::chrono::seconds kLongest(90);
    for (const auto& lane : lanes) {
      if (lane->busyFor() > kLongest) {
        campaign_.fail("an exchange hangs: " + lane->now());
        endpoint_.send(SIGKILL);
        tellKinds();
        std::_Exit(campaign_.end());
      }
    }
  }

  void tellKinds() {
    figures_.updateRarest();
    std::cout << "kinds:";
    for (std::size_t i = 0; i < kFaultKinds.size(); ++i) {
      std::cout << ' ' << kFaultKinds[i].name << ' ' << figures_.of_kind[i];
    }
    std::cout << std::endl;
  }

  Campaign& campaign_;
  LinkFigures figures_{campaign_};
  test::EndpointProcess endpoint_;
};

}  // namespace
}  // namespace qov::endure

int main(int argc, char** argv) {
  return qov::endure::runCampaign<qov::endure::LinkCampaign>(argc, argv);
}
