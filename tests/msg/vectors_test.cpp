// The messages of tests/vectors, which were written by hand, both ways.
#include <gtest/gtest.h>
#include <json/writer.h>
#include <qovpub/qov_om_message_package.h>

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/diag/log_capture.h"
#include "tests/msg/bytes.h"
#include "tests/msg/fuzz/package_checks.h"
#include "tests/msg/log_lines.h"
#include "tests/msg/vector_meaning.h"
#include "tests/vectors/vector_file.h"

namespace qov::tests {
namespace {

std::string textOf(const Json::Value& v) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  return Json::writeString(builder, v);
}

CQOV_OM_MsgPackage makePackage(const CQOV_OM_MsgPackage*) {
  return CQOV_OM_MsgPackage(nullptr);
}
template <class Package>
Package makePackage(const Package*) {
  return Package();
}

/// Bytes in front of the records.
constexpr std::size_t headSize(const CT7QPackageV3*) {
  return 28;
}
constexpr std::size_t headSize(const CQOV_MsgPackage*) {
  return 32;
}
constexpr std::size_t headSize(const CQOV_OM_MsgPackage*) {
  return 32 + 28;
}

/// Reads the messages of some bytes one by one, at the end of accessible memory.
template <class Package>
class Reader {
 public:
  explicit Reader(const std::vector<unsigned char>& bytes) : memory_(bytes), left_(bytes.size()) {}

  /// What the next message means; null when it is refused.
  Json::Value next() {
    Package package = makePackage(static_cast<Package*>(nullptr));
    const LogCapture log;
    const unsigned int result =
        package.decode(memory_.begin() + pos_, static_cast<unsigned int>(left_));
    lines_ = linesOf(log.text());
    if (result == Package::kFailed) {
      return Json::Value();
    }
    const std::size_t taken = headSize(&package) + result;
    pos_ += taken;
    left_ -= taken;
    return meaningOf(package);
  }

  /// Bytes behind the messages read so far.
  std::size_t left() const { return left_; }
  std::size_t pos() const { return pos_; }
  /// What the last message was refused with.
  const Lines& lines() const { return lines_; }

 private:
  FencedMemory memory_;
  std::size_t left_;
  std::size_t pos_ = 0;
  Lines lines_;
};

template <class Package>
std::vector<unsigned char> encoded(const Json::Value& meaning) {
  Package package = makePackage(static_cast<Package*>(nullptr));
  fill(package, meaning);
  std::vector<unsigned char> bytes(100000);
  const unsigned int size = package.encode(bytes.data(), static_cast<unsigned int>(bytes.size()));
  bytes.resize(size == Package::kFailed ? 0 : size);
  return bytes;
}

/// A good field where the named one is bad.
struct Cure {
  const char* refused;
  std::size_t at;
  std::vector<unsigned char> bytes;
};

const std::vector<Cure> kCuresV3{{"magic", 0, {0x55, 0x55, 0x55, 0x55}},
                                 {"version", 4, {3, 0, 0, 0}},
                                 {"length", 24, {0, 0, 0, 0}}};
const std::vector<Cure> kCures{{"magic", 0, {0xA8, 0x68, 0x32, 0x01}},
                               {"version", 4, {1}},
                               {"type", 5, {1}},
                               {"length", 28, {0, 0, 0, 0}}};

/// Puts good bytes into the field of the header at `from` that `refused` names.
bool cure(std::vector<unsigned char>& bytes, std::size_t from, const std::vector<Cure>& cures,
          const std::string& refused) {
  for (const Cure& cure : cures) {
    if (cure.refused == refused) {
      for (std::size_t i = 0; i < cure.bytes.size(); ++i) {
        bytes.at(from + cure.at + i) = cure.bytes[i];
      }
      return true;
    }
  }
  return false;
}

bool cureHead(std::vector<unsigned char>& message, const std::string& refused,
              const CT7QPackageV3*) {
  return cure(message, 0, kCuresV3, refused);
}
bool cureHead(std::vector<unsigned char>& message, const std::string& refused,
              const CQOV_MsgPackage*) {
  return cure(message, 0, kCures, refused);
}
/// Of an OM message the inner header may be the bad one.
bool cureHead(std::vector<unsigned char>& message, const std::string& refused,
              const CQOV_OM_MsgPackage*) {
  const bool outer = refused != "length" && cure(message, 0, kCures, refused);
  const bool inner = cure(message, 32, kCuresV3, refused);
  return outer || inner;
}

const std::string& functionOf(const CT7QPackageV3*) {
  return kFunctionV3;
}
const std::string& functionOf(const CQOV_MsgPackage*) {
  return kFunction;
}
const std::string& functionOf(const CQOV_OM_MsgPackage*) {
  return kFunctionV3;
}

class Vectors : public testing::TestWithParam<std::string> {
 protected:
  Vectors() : vector_(readVector(GetParam())) {}

  const Json::Value& meaning() const { return vector_.meaning; }

  /// Calls the test for the kind of package that the messages are.
  template <class Test>
  void forItsKind(const Test& test) {
    const std::string kind = meaning()["kind"].asString();
    if (kind == "v3") {
      test(static_cast<CT7QPackageV3*>(nullptr));
    } else if (kind == "internal") {
      test(static_cast<CQOV_MsgPackage*>(nullptr));
    } else {
      ASSERT_EQ(kind, "om");
      test(static_cast<CQOV_OM_MsgPackage*>(nullptr));
    }
  }

  template <class Package>
  void reads() {
    Reader<Package> reader(vector_.bytes);
    for (const Json::Value& message : meaning()["messages"]) {
      ASSERT_EQ(textOf(reader.next()), textOf(message));
      EXPECT_EQ(reader.lines(), Lines());
    }
    if (!meaning().isMember("refused")) {
      EXPECT_EQ(reader.left(), 0U);
      return;
    }
    ASSERT_TRUE(reader.next().isNull());
    isRefusedFor<Package>(meaning()["refused"].asString(), reader);
  }

  template <class Package>
  void isRefusedFor(const std::string& refused, const Reader<Package>& reader) {
    const Package* const kind = nullptr;
    hasFault<Package>(refused, reader.pos());
    if (refused == "head-short") {
      EXPECT_EQ(reader.lines(), kNoHead);
      EXPECT_LT(reader.left(), headSize(kind));
    } else if (const auto fault = kRecordFaults.find(refused); fault != kRecordFaults.end()) {
      const std::string start = kPlace + functionOf(kind) + fault->second;
      ASSERT_EQ(reader.lines().size(), refused == "record-short" ? 1U : 2U);
      EXPECT_EQ(reader.lines()[0].substr(0, start.size()), start);
    } else {
      EXPECT_EQ(reader.lines(), kBadHead);
      std::vector<unsigned char> message(
          vector_.bytes.begin() + static_cast<std::ptrdiff_t>(reader.pos()), vector_.bytes.end());
      ASSERT_TRUE(cureHead(message, refused, kind));
      EXPECT_FALSE(Reader<Package>(message).next().isNull());
    }
  }

  /// The fault as a value is the one that the vector is named for.
  template <class Package>
  void hasFault(const std::string& refused, std::size_t pos) {
    const std::vector<unsigned char> message(
        vector_.bytes.begin() + static_cast<std::ptrdiff_t>(pos), vector_.bytes.end());
    Package package = makePackage(static_cast<Package*>(nullptr));
    const LogCapture log;
    ASSERT_EQ(package.decode(message.data(), static_cast<unsigned int>(message.size())),
              Package::kFailed);
    const DecodeFault& fault = package.decodeFault();
    EXPECT_EQ(fault.kind, kFaultKinds.at(refused));
    EXPECT_LE(fault.pos, message.size());
  }

  /// Writes all messages, and a refused one as it stands.
  template <class Package>
  void writes() {
    std::vector<unsigned char> bytes;
    for (const Json::Value& message : meaning()["messages"]) {
      const std::vector<unsigned char> one = encoded<Package>(message);
      bytes.insert(bytes.end(), one.begin(), one.end());
    }
    std::vector<unsigned char> expected(vector_.bytes);
    if (meaning().isMember("refused")) {
      expected.resize(bytes.size());
    }
    const bool differs = meaning()["read_only"].asBool();
    EXPECT_EQ(hexOf(bytes.data(), bytes.size()) == hexOf(expected.data(), expected.size()),
              !differs)
        << hexOf(bytes.data(), bytes.size()) << "\n"
        << hexOf(expected.data(), expected.size());
  }

  const Vector vector_;
};

TEST_P(Vectors, AreReadAsTheyAreMeant) {
  forItsKind([this](auto* kind) { reads<std::remove_pointer_t<decltype(kind)>>(); });
}

TEST_P(Vectors, AreWhatTheirMeaningIsWrittenAs) {
  forItsKind([this](auto* kind) { writes<std::remove_pointer_t<decltype(kind)>>(); });
}

TEST_P(Vectors, AreReadAsASecondDecoderDoes) {
  const LogCapture log;
  forItsKind([this](auto* kind) {
    test::checkMessage<std::remove_pointer_t<decltype(kind)>>(vector_.bytes);
  });
}

INSTANTIATE_TEST_SUITE_P(All, Vectors, testing::ValuesIn(vectorNames(".hex")),
                         [](const auto& named) { return named.param; });

TEST(VectorFiles, ArePairs) {
  EXPECT_FALSE(vectorNames(".hex").empty());
  EXPECT_EQ(vectorNames(".hex"), vectorNames(".json"));
}

TEST(VectorFiles, HaveEveryRefusalOfEveryKindOfMessage) {
  std::set<std::string> there;
  for (const std::string& name : vectorNames(".hex")) {
    const Json::Value meaning = readVector(name).meaning;
    if (meaning.isMember("refused")) {
      there.insert(meaning["kind"].asString() + " " + meaning["refused"].asString());
    }
  }
  for (const char* const refused : {"head-short", "magic", "version", "length", "record-short",
                                    "record-length", "cell-short", "cell-type", "cell-length"}) {
    for (const char* const kind : {"v3 ", "internal ", "om "}) {
      EXPECT_EQ(there.count(std::string(kind) + refused), 1U) << kind << refused;
    }
  }
  EXPECT_EQ(there.count("internal type"), 1U);
  EXPECT_EQ(there.count("om type"), 1U);
}

}  // namespace
}  // namespace qov::tests
