#include <ace/Log_Msg.h>
#include <qovpub/qov_om_message_package.h>
#include <sys/resource.h>

#include <sstream>

#include "modules/common/json_object.h"
#include "modules/common/octets.h"
#include "tests/msg/bytes.h"
#include "tests/support/sanitizers.h"
#include "tests/tools/qovctl_fixture.h"
#include "tests/vectors/vector_file.h"

using namespace std::string_literals;

namespace qov::test {
namespace {

using tests::Bytes;

constexpr int kBadData = 6;

std::string textOf(const std::vector<unsigned char>& bytes) {
  return {bytes.begin(), bytes.end()};
}

/// What the library dumps of the message at the start of `bytes`, which become the rest.
template <class Package>
std::string dumpFirst(Package& package, std::size_t head, std::string& bytes) {
  auto* const begin = reinterpret_cast<unsigned char*>(bytes.data());
  const unsigned int length = package.decode(begin, static_cast<unsigned int>(bytes.size()));
  EXPECT_NE(length, Package::kFailed);
  bytes.erase(0, head + length);
  std::ostringstream out;
  package.dump(out);
  return out.str();
}

std::string dumpFirst(const std::string& kind, std::string& bytes) {
  if (kind == "v3") {
    CT7QPackageV3 package;
    return dumpFirst(package, 28, bytes);
  }
  if (kind == "internal") {
    CQOV_MsgPackage package;
    return dumpFirst(package, 32, bytes);
  }
  CQOV_OM_MsgPackage package(nullptr);
  return dumpFirst(package, 60, bytes);
}

/// Of those that have ended.
long mostMemoryOfChildren() {
  rusage usage{};
  EXPECT_EQ(::getrusage(RUSAGE_CHILDREN, &usage), 0);
  return usage.ru_maxrss;
}

/// A message without records, and what is decoded of it.
const std::string kEmptyMessage = "55555555 03000000 00000000 ffffffff fdffffff ffffffff 00000000";

class QovctlDecode : public QovctlTest {
 protected:
  /// The JSON document that a run prints.
  static Json::Value documentOf(const QovctlRun& run) { return common::parseJson(run.out); }

  QovctlRun decode(const std::vector<unsigned char>& bytes,
                   const std::vector<std::string>& arguments = {}) {
    std::vector<std::string> words{"decode"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return run(words, textOf(bytes));
  }

  /// The bytes are refused with that word and offset, and nothing is printed.
  void expectRefusal(const Bytes& bytes, const std::string& kind, std::size_t offset,
                     const std::string& word) {
    SCOPED_TRACE(word);
    const QovctlRun refused = decode(bytes.data(), {"--kind", kind});
    EXPECT_EQ(refused.status, kBadData);
    EXPECT_EQ(refused.out, "");
    EXPECT_THAT(refused.err, StartsWith("qovctl: bad data at byte " + std::to_string(offset) +
                                        ": " + word + ": "));
    EXPECT_EQ(std::count(refused.err.begin(), refused.err.end(), '\n'), 1) << refused.err;
  }
};

TEST_F(QovctlDecode, ShowsEveryVectorAsWhatItMeans) {
  const std::vector<std::string> names = tests::vectorNames(".json");
  ASSERT_FALSE(names.empty());
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    const tests::Vector vector = tests::readVector(name);
    const Json::Value& meaning = vector.meaning;
    const QovctlRun shown = run({"decode", "--json", "--kind", meaning["kind"].asString(), "--hex",
                                 std::string(QOV_VECTORS_DIR) + "/" + name + ".hex"});
    const Json::Value document = documentOf(shown);
    EXPECT_EQ(document["kind"], meaning["kind"]);
    EXPECT_EQ(document["messages"], meaning["messages"]);
    if (meaning.isMember("refused")) {
      EXPECT_EQ(shown.status, kBadData);
      EXPECT_THAT(shown.err, HasSubstr(": " + meaning["refused"].asString() + ": "));
    } else {
      EXPECT_EQ(shown.status, 0);
      EXPECT_EQ(shown.err, "");
    }
  }
}

TEST_F(QovctlDecode, TellsTheKindAndPrintsWhatTheLibraryDumps) {
  for (const std::string& name : tests::vectorNames(".json")) {
    SCOPED_TRACE(name);
    const tests::Vector vector = tests::readVector(name);
    std::string rest = textOf(vector.bytes);
    std::string dumps;
    for (Json::ArrayIndex i = 0; i < vector.meaning["messages"].size(); ++i) {
      dumps += dumpFirst(vector.meaning["kind"].asString(), rest);
    }
    // Without bit 0 of its flags nothing in the bytes of an OM message tells that they are one.
    const bool untold = name == "om_without_flag";
    const QovctlRun shown = untold ? decode(vector.bytes, {"--kind", "om"}) : decode(vector.bytes);
    EXPECT_EQ(shown.status, vector.meaning.isMember("refused") ? kBadData : 0);
    EXPECT_EQ(shown.out, dumps);
  }
}

TEST_F(QovctlDecode, ReadsHexadecimalTextInEveryForm) {
  const std::string dump = run({"decode", "--text", kEmptyMessage}).out;
  EXPECT_THAT(dump, StartsWith("{\nRET=0\nSSK="));
  for (const std::string& text :
       {"55555555030000 0000000000ffffffff\tfdff:FFFFffffFFFF 00:00:00:00"s,
        "# a comment 1\n0x55555555 0X03000000 00000000 # another: zz\r\n0xff:0xff:0xffff "
        "fdffffffffffffff\n\n00000000"s}) {
    const QovctlRun given = run({"decode", "--text", text});
    EXPECT_EQ(given.out, dump) << given.err;
    const QovctlRun read = run({"decode", "--hex"}, text);
    EXPECT_EQ(read.out, dump) << read.err;
    EXPECT_EQ(read.status, 0);
  }
}

TEST_F(QovctlDecode, RefusesTextThatIsNotHexadecimalWithItsLine) {
  for (const std::string& word : {"5"s, "0x"s, "0x5"s, "5g"s, "555"s, "55,55"s, "0x550x55"s}) {
    const QovctlRun refused = run({"decode", "--hex"}, "55 # one\n55 " + word + "\n");
    EXPECT_EQ(refused.status, kBadData) << word;
    EXPECT_EQ(refused.err, "qovctl: hexadecimal text, line 2: \"" + word +
                               "\" is not pairs of hexadecimal digits\n");
  }
}

TEST_F(QovctlDecode, ReadsBytesFromAFileOrStandardInput) {
  const std::string bytes = textOf(Bytes().headV3(0).data());
  const std::string dump = run({"decode", "--text", kEmptyMessage}).out;
  EXPECT_EQ(run({"decode", file("bytes", bytes)}).out, dump);
  EXPECT_EQ(run({"decode"}, bytes).out, dump);
  EXPECT_EQ(run({"decode", "-"}, bytes).out, dump);
}

TEST_F(QovctlDecode, PrintsADocumentForEachRowOfMessagesOfOneKind) {
  const std::string v3 = textOf(Bytes().headV3(0).data());
  const std::string internal = textOf(Bytes().head(0).data());
  const std::string om = textOf(Bytes().head(28).set(11, 1).headV3(0).data());
  const QovctlRun shown = run({"decode", "--json"}, v3 + v3 + internal + om + v3);
  EXPECT_EQ(shown.status, 0) << shown.err;
  std::vector<std::string> kinds;
  std::string rest = shown.out;
  for (std::size_t end = rest.find("\n}\n"); end != std::string::npos; end = rest.find("\n}\n")) {
    const Json::Value document = common::parseJson(rest.substr(0, end + 2));
    kinds.push_back(document["kind"].asString() + std::to_string(document["messages"].size()));
    rest.erase(0, end + 3);
  }
  EXPECT_EQ(rest, "");
  EXPECT_THAT(kinds, ::testing::ElementsAre("v32", "internal1", "om1", "v31"));
}

TEST_F(QovctlDecode, HoldsNoMessageOnceItIsPrinted) {
  if (QOV_TEST_ASAN != 0 || QOV_TEST_TSAN != 0) {
    GTEST_SKIP() << "the sanitizer keeps memory that is given back";
  }
  const std::string message = textOf(Bytes().headV3(0).data());
  std::string many;
  for (int i = 0; i < 50000; ++i) {
    many += message;
  }
  EXPECT_EQ(run({"decode"}, many).status, 0);
  const long kilobytes = mostMemoryOfChildren();
  const QovctlRun shown = run({"decode", "--json"}, many);
  EXPECT_EQ(shown.status, 0);
  EXPECT_EQ(documentOf(shown)["messages"].size(), 50000U);
  // All of them are more than 100 MB as JSON values.
  EXPECT_LT(mostMemoryOfChildren() - kilobytes, 20000);
}

TEST_F(QovctlDecode, ReadsWhatIsMarkedAsOmAsAnInternalMessageWhenToldTo) {
  Bytes bytes;
  bytes.head(0).set(11, 1);
  const QovctlRun told = decode(bytes.data(), {"--kind", "internal", "--json"});
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(documentOf(told)["messages"][0]["head"]["flags"], 1);
  // The message inside is missing.
  EXPECT_THAT(decode(bytes.data()).err, HasSubstr("bad data at byte 32: head-short"));
}

TEST_F(QovctlDecode, SaysWhereAndWhyAHeaderIsNone) {
  expectRefusal(Bytes(), "v3", 0, "head-short");
  expectRefusal(Bytes().fill(27, 0x55), "v3", 0, "head-short");
  expectRefusal(Bytes().head(0).set(0, 1), "internal", 0, "magic");
  expectRefusal(Bytes().headV3(0).set(3, 0x56), "v3", 0, "magic");
  expectRefusal(Bytes().headV3(0).set(4, 2), "v3", 4, "version");
  expectRefusal(Bytes().headV3(0).set(7, 1), "v3", 4, "version");
  expectRefusal(Bytes().head(0).set(4, 3), "internal", 4, "version");
  expectRefusal(Bytes().head(0, 0), "internal", 5, "type");
  expectRefusal(Bytes().head(0, 5), "internal", 5, "type");
  expectRefusal(Bytes().headV3(100).fill(92, 0), "v3", 24, "length");
  expectRefusal(Bytes().headV3(0xFFFFFFFF).fill(92, 0), "v3", 24, "length");
  expectRefusal(Bytes().head(1), "internal", 28, "length");
}

TEST_F(QovctlDecode, SaysWhereAndWhyARecordIsNone) {
  expectRefusal(Bytes().headV3(9).fill(9, 0), "v3", 28, "record-short");
  expectRefusal(Bytes().headV3(19).record(1, 0).fill(9, 0), "v3", 38, "record-short");
  expectRefusal(Bytes().headV3(10).record(1, 1).fill(10, 0), "v3", 36, "record-length");
  expectRefusal(Bytes().headV3(13).record(1, 3).fill(3, 0), "v3", 38, "cell-short");
  expectRefusal(Bytes().head(14).record(1, 4).cell(1, 10, 0), "internal", 42, "cell-type");
  expectRefusal(Bytes().headV3(19).record(1, 9).cell(1, 3, 1).u8(0).cell(1, 15, 0), "v3", 43,
                "cell-type");
  expectRefusal(Bytes().headV3(15).record(1, 5).cell(1, 3, 2).fill(1, 0), "v3", 40, "cell-length");
}

TEST_F(QovctlDecode, SaysWhereAndWhyAnOmMessageIsNone) {
  expectRefusal(Bytes().head(0), "om", 32, "head-short");
  expectRefusal(Bytes().head(0, 9), "om", 5, "type");
  expectRefusal(Bytes().head(38).headV3(9).fill(9, 0), "om", 60, "record-short");
  expectRefusal(Bytes().head(28).head(28), "om", 32, "magic");
}

TEST_F(QovctlDecode, SaysThatTheKindCannotBeTold) {
  expectRefusal(Bytes(), "auto", 0, "head-short");
  expectRefusal(Bytes().fill(3, 0x55), "auto", 0, "head-short");
  expectRefusal(Bytes().fill(4, 0x56), "auto", 0, "magic");
}

TEST_F(QovctlDecode, CountsOffsetsFromTheStartOfTheInput) {
  const QovctlRun refused =
      decode(Bytes().headV3(10).record(1, 0).headV3(0).set(42, 2).data(), {"--json"});
  EXPECT_EQ(refused.status, kBadData);
  EXPECT_EQ(refused.err, "qovctl: bad data at byte 42: version: 2 is not 3\n");
  EXPECT_EQ(documentOf(refused)["messages"].size(), 1U);
}

TEST_F(QovctlDecode, SurvivesTextsThatWouldSteerATerminal) {
  const auto refused = [&](const std::string& text) {
    const QovctlRun ended = run({"decode", "--text", text});
    EXPECT_EQ(ended.status, kBadData);
    return ended.err;
  };
  EXPECT_THAT(refused("\x1b[2J"), HasSubstr("\"\\x1b[2J\""));
  EXPECT_THAT(refused("\xc2\x9b"
                      "2J\xc3\xbc"),
              HasSubstr("\"\\xc2\\x9b2J\xc3\xbc\""));
  EXPECT_THAT(refused("\x9b"
                      "2J\x7f"),
              HasSubstr("\"\\x9b2J\\x7f\""));
}

TEST_F(QovctlDecode, ShowsOfAWrongGroupItsStart) {
  const QovctlRun refused = run({"decode", "--hex"}, std::string(100000, 'z'));
  EXPECT_EQ(refused.status, kBadData);
  EXPECT_THAT(refused.err, HasSubstr("\"zzz"));
  EXPECT_THAT(refused.err, HasSubstr("zzz...\" is not pairs"));
  EXPECT_LT(refused.err.size(), 200U);
}

TEST_F(QovctlDecode, EndsWithOneWhenAFileCannotBeReadOrWritten) {
  const QovctlRun missing = run({"decode", "no such file"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err, "qovctl: no such file: No such file or directory\n");
  EXPECT_EQ(run({"decode", "/"}).status, 1);
  writesTo("/dev/full");
  const QovctlRun full = run({"decode", "--text", kEmptyMessage});
  EXPECT_EQ(full.status, 1);
  EXPECT_EQ(full.err, "qovctl: cannot write: No space left on device\n");
  hasNoOutput();
  EXPECT_EQ(run({"decode", "--text", kEmptyMessage}).status, 1);
}

}  // namespace
}  // namespace qov::test
