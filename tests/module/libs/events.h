#ifndef QOV_TESTS_MODULE_LIBS_EVENTS_H
#define QOV_TESTS_MODULE_LIBS_EVENTS_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

/// What the test modules did, in order, for the test that loaded them. In a library of its own, so
/// that the program and its modules share one list.
///
/// Thread: any.
namespace qov::test {

void recordEvent(const std::string& event);

std::vector<std::string> events();

/// Waits until `event` was recorded `count` times; false after a generous limit.
bool waitForEvent(const std::string& event, int count = 1,
                  std::chrono::milliseconds limit = std::chrono::seconds(60));

/// How often `event` was recorded.
int countEvent(const std::string& event);

/// Forgets the events, closes the gate and lets firstToInitialise() begin again.
void resetEvents();

/// True for the first caller only. The order of loading is the directory's, so a test that needs a
/// good module in front of a bad one takes two that are good or bad by turn.
bool firstToInitialise();

/// What the module "sender" does again and again.
void setOutlet(std::function<void()> outlet);
std::function<void()> outlet();

/// Handlers that wait at the gate go on once it is open.
void openGate();
void waitAtGate();

}  // namespace qov::test

#endif
