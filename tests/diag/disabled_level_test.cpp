#include <gtest/gtest.h>
#include <qovpub/qov_common_debugkit.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <new>
#include <string>

#include "tests/diag/log_capture.h"

namespace {

thread_local long allocations = 0;
thread_local bool outOfMemory = false;

void* allocate(std::size_t size) {
  ++allocations;
  return outOfMemory ? nullptr : std::malloc(size);
}

}  // namespace

// The library's calls come here, too. All forms, since the sanitizers' own do not lead from one to
// another; and not inlined, or the compiler sees new meet free().
#define QOV_OWN [[gnu::noinline]]
QOV_OWN void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
QOV_OWN void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
QOV_OWN void* operator new(std::size_t size) {
  if (void* const memory = allocate(size)) {
    return memory;
  }
  throw std::bad_alloc();
}
QOV_OWN void* operator new[](std::size_t size) {
  return ::operator new(size);
}
QOV_OWN void operator delete(void* memory) noexcept {
  std::free(memory);
}
QOV_OWN void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
QOV_OWN void operator delete(void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
QOV_OWN void operator delete[](void* memory) noexcept {
  std::free(memory);
}
QOV_OWN void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}
QOV_OWN void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
#undef QOV_OWN

namespace {

constexpr const char* kLongText = "a text that is longer than what a string holds in itself";

void infoF(const CQOVDebugKit& kit, const char* format, ...) {
  va_list args;
  va_start(args, format);
  kit.info(1, "f", 2, format, args);
  va_end(args);
}

class DisabledLevel : public testing::Test {
 protected:
  /// How often `call` allocates; this thread's objects and the registry are there before.
  template <class Call>
  static long allocationsOf(const Call& call) {
    call();
    const long before = allocations;
    call();
    return allocations - before;
  }

  const CQOVDebugKit kit_{"KIT", 5};
  const LogCapture capture_{LM_SHUTDOWN};
};

TEST_F(DisabledLevel, BuildsNothingForALiteral) {
  EXPECT_EQ(allocationsOf([this] {
              kit_.trace(kLongText);
              kit_.debug(1, "f", 2, kLongText);
              kit_.info(1, "f", 2, kLongText);
              kit_.warn(1, "f", 2, kLongText);
              kit_.error(1, "f", 2, kLongText);
              kit_.critical(1, "f", 2, kLongText);
            }),
            0);
}

TEST_F(DisabledLevel, BuildsNothingForAFormat) {
  EXPECT_EQ(allocationsOf([this] { infoF(kit_, "%s %1000d", kLongText, 5); }), 0);
}

TEST_F(DisabledLevel, BuildsNothingInAGuard) {
  EXPECT_EQ(allocationsOf([] {
              CQOVDebugKitGuard guard(0, kLongText);
              guard.debug(1, "f", 2, "%s", kLongText);
              guard.error(1, "f", 2, "%s", kLongText);
            }),
            0);
}

TEST_F(DisabledLevel, IsWhatMakesTheDifference) {
  LogCapture::log().priority_mask(LogCapture::kAllLevels, ACE_Log_Msg::PROCESS);
  EXPECT_GT(allocationsOf([] { const CQOVDebugKitGuard guard(0, kLongText); }), 0);
}

TEST(OutOfMemory, LeavesAKitThatCannotBeRegisteredToItsOwner) {
  CQOVDebugKitMgr kits;
  CQOVDebugKit kit("KIT", 300);
  errno = 0;
  outOfMemory = true;
  const int added = kits.add(&kit);
  const int reason = errno;
  outOfMemory = false;
  EXPECT_EQ(added, 0);
  EXPECT_EQ(reason, ENOMEM);
  EXPECT_EQ(kits.find(300), kits.find(0));
}

TEST(OutOfMemory, CostsARecordAndNothingElse) {
  LogCapture capture;
  const CQOVDebugKit kit("KIT", 5);
  const std::string endless(2000, 'f');
  outOfMemory = true;
  kit.error(1, endless.c_str(), 2, "m");
  { const CQOVDebugKitGuard guard(0, kLongText); }
  outOfMemory = false;
  capture.clear();
  kit.error(1, "f", 2, "m");
  EXPECT_EQ(capture.lines(), 1);
}

}  // namespace
