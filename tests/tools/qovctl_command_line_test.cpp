#include <fcntl.h>
#include <qovpub/qov_version.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "tests/link/scripted_peer.h"
#include "tests/tools/qovctl_fixture.h"

namespace qov::test {
namespace {

constexpr int kUsage = 2;

using Words = std::vector<std::string>;

const std::string kEmpty = "5555555503000000000000 00ffffffff fdffffff ffffffff 00000000";

class QovctlCommandLine : public QovctlTest {
 protected:
  /// The names of the options and arguments that a help text explains.
  static std::set<std::string> explained(const std::string& help) {
    std::set<std::string> names;
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);) {
      std::istringstream words(line);
      std::string name;
      if (line.compare(0, 2, "  ") == 0 && line.compare(2, 1, " ") != 0 && words >> name &&
          (name[0] == '-' || std::all_of(name.begin(), name.end(), ::isupper))) {
        names.insert(name.substr(0, name.find('=')));
      }
    }
    return names;
  }

  void expectUsageError(const Words& arguments, const std::string& text) {
    const QovctlRun refused = run(arguments, "");
    EXPECT_EQ(refused.status, kUsage) << ::testing::PrintToString(arguments);
    EXPECT_EQ(refused.out, "");
    EXPECT_THAT(refused.err, StartsWith("qovctl: "));
    EXPECT_THAT(refused.err, HasSubstr(text));
    EXPECT_EQ(std::count(refused.err.begin(), refused.err.end(), '\n'), 1) << refused.err;
  }
};

TEST_F(QovctlCommandLine, ExplainsEveryOptionInItsHelp) {
  const std::set<std::string> endpoint{"-h,--help", "--endpoint", "--timeout", "--retries",
                                       "--ssk",     "--nid",      "--bid",     "--verbose",
                                       "--tables",  "--json",     "--dump"};
  const auto with = [&](std::set<std::string> more) {
    more.insert(endpoint.begin(), endpoint.end());
    return more;
  };
  const std::vector<std::pair<std::string, std::set<std::string>>> commands{
      {"get", with({"--table", "--columns", "KEY"})},
      {"walk", with({"--table", "--columns", "--after"})},
      {"send", with({"FILE", "--command", "--cell"})},
      {"tables", {"-h,--help", "--tables"}},
      {"decode", {"-h,--help", "FILE", "--hex", "--text", "--kind", "--json"}}};
  for (const auto& [command, options] : commands) {
    const QovctlRun help = run({command, "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
    EXPECT_EQ(explained(help.out), options) << help.out;
    EXPECT_EQ(run({command, "-h"}).out, help.out);
  }
}

TEST_F(QovctlCommandLine, SaysInEveryHelpHowItEnds) {
  for (const Words& command :
       std::vector<Words>{{}, {"get"}, {"walk"}, {"send"}, {"tables"}, {"decode"}}) {
    Words arguments = command;
    arguments.emplace_back("--help");
    const QovctlRun help = run(arguments);
    EXPECT_EQ(help.status, 0);
    for (int status = 0; status <= 7; ++status) {
      EXPECT_THAT(help.out, HasSubstr("\n  " + std::to_string(status) + "  "));
    }
  }
  for (const std::string& command : Words{"get", "walk", "send"}) {
    EXPECT_THAT(run({command, "--help"}).out, HasSubstr("sent once more"));
    EXPECT_THAT(run({command, "--help"}).out, HasSubstr("127.0.0.1:19001"));
    EXPECT_THAT(run({command, "--help"}).out, HasSubstr("[HOST]:PORT"));
    EXPECT_THAT(run({command, "--help"}).out, HasSubstr("0.001 to 86400"));
    EXPECT_THAT(run({command, "--help"}).out, HasSubstr("Connecting takes at most 2 seconds, or"));
    EXPECT_THAT(run({command, "--help"}).out, HasSubstr("\n  QOVCTL_ENDPOINT  "));
    EXPECT_THAT(run({command, "--help"}).out, HasSubstr("\n  QOVCTL_TABLES    "));
  }
  EXPECT_THAT(run({"get", "--help"}).out, HasSubstr("required with a key"));
  EXPECT_THAT(run({"walk", "--help"}).out, ::testing::Not(HasSubstr("interfaces")));
  for (const std::string& word : Words{"get", "walk", "send", "tables", "decode"}) {
    EXPECT_THAT(run({"--help"}).out, HasSubstr("\n  " + word + " "));
  }
}

TEST_F(QovctlCommandLine, RefusesWhatItDoesNotKnow) {
  expectUsageError({"--verbos"}, "--verbos");
  expectUsageError({"fetch"}, "fetch");
  expectUsageError({"get", "counts", "--tabel", "1"}, "--tabel");
  expectUsageError({"walk", "--table", "1", "--hex"}, "--hex");
  expectUsageError({"send", "-", "--table", "1"}, "--table");
  expectUsageError({"decode", "--endpoint", "a:1"}, "--endpoint");
  expectUsageError({"agent", "state"}, "state");
}

TEST_F(QovctlCommandLine, RefusesWhatIsMissing) {
  expectUsageError({}, "a command is required");
  expectUsageError({"get"}, "KEY");
  expectUsageError({"get", "5"}, "--table");
  expectUsageError({"walk"}, "--table");
  expectUsageError({"walk", "--table"}, "--table");
  expectUsageError({"send"}, "FILE or --command");
  expectUsageError({"send", "--cell", "1:Uint:1"}, "FILE or --command");
  expectUsageError({"decode", "--text"}, "--text");
  expectUsageError({"agent"}, "agent: a command is required: status, ");
  expectUsageError({"agent", "module"}, "module: a command is required: list");
}

TEST_F(QovctlCommandLine, RefusesWhatIsTooMuch) {
  expectUsageError({"get", "counts", "6"}, "counts");
  expectUsageError({"get", "--table", "1", "6", "counts"}, "counts");
  expectUsageError({"walk", "--table", "1", "--json", "--columns", "key"}, "--json");
  expectUsageError({"get", "--table", "1", "5", "--columns", "key", "--dump"}, "--dump");
  expectUsageError({"get", "--table", "1", "counts"}, "counts");
  expectUsageError({"get", "--tables", "tables.json", "counts"}, "--tables");
  expectUsageError({"walk", "--table", "1", "5"}, "5");
  expectUsageError({"walk", "--table", "1", "--table", "2"}, "--table");
  expectUsageError({"walk", "--table", "1", "--json", "--dump"}, "--json");
  expectUsageError({"send", "-", "--command", "1"}, "FILE");
  expectUsageError({"send", "a", "b"}, "b");
  expectUsageError({"decode", "a", "b"}, "b");
  expectUsageError({"decode", "a", "--text", "55"}, "--text");
  expectUsageError({"decode", "--hex", "--text", "55"}, "--text");
  expectUsageError({"get", "counts", "decode"}, "decode");
}

TEST_F(QovctlCommandLine, RefusesValuesThatAreNone) {
  for (const std::string& endpoint : Words{"", "host", "host:", ":1", "host:0", "host:65536",
                                           "host:1x", "host:0x958f", "[x]:y]:1", "[]:1", "70000"}) {
    expectUsageError({"get", "counts", "--endpoint", endpoint}, "--endpoint");
  }
  for (const std::string& timeout : Words{"0", "-1", "nan", "inf", "86401", "1s", ""}) {
    expectUsageError({"get", "counts", "--timeout=" + timeout}, "--timeout");
  }
  for (const std::string& number : Words{"interface", "-1", "4294967296", "0x", "1.0", "1 "}) {
    expectUsageError({"walk", "--table=" + number}, "--table");
  }
  for (const std::string& key : Words{"x", "18446744073709551616", "0x1 "}) {
    expectUsageError({"get", "--table", "1", key}, "KEY");
    expectUsageError({"walk", "--table", "1", "--after", key}, "--after");
  }
  expectUsageError({"decode", "--kind", "v2"}, "--kind");
  expectUsageError({"get", "counts", "--retries", "101"}, "--retries");
  expectUsageError({"get", "counts", "--retries=-1"}, "--retries");
  expectUsageError({"get", "counts", "--ssk", "0x100000000"}, "--ssk");
  expectUsageError({"get", "counts", "--nid", "65536"}, "--nid");
  expectUsageError({"get", "counts", "--bid", "x"}, "--bid");
  expectUsageError({"get", "counts", "--tables", ""}, "--tables");
  expectUsageError({"get", "counts", "--columns", ""}, "--columns");
}

TEST_F(QovctlCommandLine, RefusesRecordsThatAreNone) {
  const auto refused = [&](const Words& parts, const std::string& text) {
    Words arguments{"send"};
    arguments.insert(arguments.end(), parts.begin(), parts.end());
    expectUsageError(arguments, text);
  };
  refused({"--command", "fetch/1"}, "--command \"fetch/1\"");
  refused({"--command", "get/somewhere"}, "--command \"get/somewhere\"");
  refused({"--command", "18446744073709551616"}, "--command");
  refused({"--cell", "1:Uint:1", "--command", "1"}, "a cell without a command before it");
  const auto refusedCell = [&](const std::string& cell, const std::string& text) {
    refused({"--command", "1", "--cell", cell}, "--cell \"" + cell + "\": " + text);
  };
  refusedCell("1", "not TAG:TYPE:VALUE or COLUMN:VALUE");
  refusedCell("1:Uint", "not TAG:TYPE:VALUE");
  refusedCell("4096:Uint:1", "the tag");
  refusedCell("1:Number:1", "type: \"Number\" is no type");
  refusedCell("1:Uint:x", "not a number of up to 64 bits (16 or 0x10)");
  refusedCell("1:Enum:18446744073709551616", "not a number of up to 64 bits");
  refusedCell("1:Time:", "not a number");
  refusedCell("1:Json:0x10", "not JSON");
  refusedCell("1:Int:-", "not a number");
  refusedCell("1:Int:-9223372036854775809", "not a number of up to 64 bits");
  refusedCell("1:Uint:-1", "value: -1 is not within");
  refusedCell("1:Octet:0", "value: not pairs");
  refusedCell("1:Array:{}", "value: not an array");
  refused({"--command", "1", "--cell", "1:String:" + std::string(65531, 'a')},
          "aaa...\": record is too long, length is 65536");
  refusedCell("1:Bool:yes", "neither true, false nor a number");
  refusedCell("1:Uint:true", "not a number");
}

TEST_F(QovctlCommandLine, TellsItsVersion) {
  const QovctlRun version = run({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out,
            "qovctl " QOVPUB_VERSION_STRING " with libqovpub " + std::string(QOV_Version()) + "\n");
}

TEST_F(QovctlCommandLine, TakesValuesAtTheirLimits) {
  const ClosedPort nobody;
  const std::string endpoint = "--endpoint=127.0.0.1:" + std::to_string(nobody.port());
  // Nothing of it is refused before the connection is.
  for (const Words& arguments : std::vector<Words>{
           {"get", "counts", "--timeout", "0.001"},
           {"get", "counts", "--retries=100", "--ssk=0xffffffff", "--nid=65535", "--bid=0xFFFF"},
           {"get", "--table=1", "1", "--retries=0", "--ssk=0", "--columns=0,4095"},
           {"get", "--table", "4294967295", "18446744073709551615"},
           {"walk", "--table", "0xFFFFFFFF", "--after=0", "--timeout=86400"},
           {"send", "--command", "0xFFFFFFFFFFFFFFFF", "--cell", "4095:Uint:0"},
           {"send", "--command=1", "--cell=1:Int:-9223372036854775808",
            "--cell=1:Uint:18446744073709551615", "--cell=1:Bool:true"}}) {
    Words words = arguments;
    words.push_back(endpoint);
    EXPECT_EQ(run(words).status, 3) << ::testing::PrintToString(words);
  }
}

TEST_F(QovctlCommandLine, TakesTheEndpointsThatTheLinkTakes) {
  const ClosedPort nobody;
  const std::string port = std::to_string(nobody.port());
  for (const std::string& endpoint : {"127.0.0.1:" + port, "[127.0.0.1]:" + port, port}) {
    EXPECT_EQ(run({"get", "counts", "--endpoint", endpoint}).status, 3) << endpoint;
  }
}

TEST_F(QovctlCommandLine, EndsWithThreeWhenAHostHasNoAddress) {
  const QovctlRun failed = run({"get", "counts", "--endpoint", "no..host:1"});
  EXPECT_EQ(failed.status, 3);
  EXPECT_EQ(failed.err, "qovctl: no connection to no..host:1: no such host\n");
}

TEST_F(QovctlCommandLine, EndsWithOneWhenHelpCannotBeWritten) {
  writesTo("/dev/full");
  EXPECT_EQ(run({"--help"}).status, 1);
}

TEST_F(QovctlCommandLine, EndsQuietlyWhenNobodyReadsOn) {
  std::string many;
  for (int i = 0; i < 5000; ++i) {
    many += kEmpty + "\n";
  }
  const std::string input = file("many", many);
  const std::string pipe = file("pipe", "") + ".fifo";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  writesTo(pipe);
  // What it prints is more than the pipe holds.
  start({"decode", "--hex", input});
  ::close(reader);
  const QovctlRun ended = finish();
  EXPECT_EQ(ended.signal, SIGPIPE);
  EXPECT_EQ(ended.err, "");
}

}  // namespace
}  // namespace qov::test
