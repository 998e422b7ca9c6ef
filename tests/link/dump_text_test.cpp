#include "link/dump_text.h"

#include <gtest/gtest.h>

namespace qov::test {
namespace {

/// What a log record takes.
constexpr std::size_t kMost = 65535;

/// Dumps as many characters as it is told, one at a time or all at once.
struct Text {
  std::size_t length;
  bool atOnce;
  mutable std::size_t tried = 0;

  void dump(std::ostringstream& out) const {
    if (atOnce) {
      out << std::string(length, 'x');
      return;
    }
    for (; tried < length; ++tried) {
      out << 'x';
    }
  }
};

TEST(DumpText, IsWholeWhenARecordTakesIt) {
  for (const bool atOnce : {true, false}) {
    EXPECT_EQ(qov::dumpOf(Text{0, atOnce}), "");
    EXPECT_EQ(qov::dumpOf(Text{kMost, atOnce}), std::string(kMost, 'x'));
  }
}

TEST(DumpText, EndsWithWhatARecordTakes) {
  for (const bool atOnce : {true, false}) {
    EXPECT_EQ(qov::dumpOf(Text{kMost + 1, atOnce}), std::string(kMost, 'x'));
  }
}

/// Spoils its stream.
struct Spoiling {
  void dump(std::ostringstream& out) const {
    out << "before";
    out.setstate(std::ios::badbit);
    out << "behind";
  }
};

TEST(DumpText, EndsWhereTheStreamIsSpoilt) {
  EXPECT_EQ(qov::dumpOf(Spoiling()), "before");
}

TEST(DumpText, IsNotMadeAnyFurther) {
  const Text longer{100 * kMost, false};
  qov::dumpOf(longer);
  EXPECT_EQ(longer.tried, kMost);
}

}  // namespace
}  // namespace qov::test
