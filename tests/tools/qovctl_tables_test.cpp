#include <filesystem>

#include "tests/tools/qovctl_fixture.h"

namespace qov::test {
namespace {

/// The file of one table with that name.
std::string tableNamed(const std::string& name) {
  return R"({"tables":[{"number":7,"name":")" + name +
         R"(","columns":[{"tag":1,"name":"label","type":"String"}]}]})";
}

/// The file of one table with these columns.
std::string columnsOf(const std::string& columns) {
  return R"({"tables":[{"number":7,"name":"things","columns":[)" + columns + "]}]}";
}

/// The file that has the names of an endpoint's tables.
class QovctlTables : public QovctlTest {
 protected:
  /// The file of a user's folder for configuration.
  static void configures(const std::filesystem::path& folder, const std::string& name) {
    std::filesystem::create_directories(folder / "qovpub");
    writeFile(folder / "qovpub" / "tables.json", tableNamed(name));
  }

  void expectRefused(const std::string& text, const std::string& why) {
    const std::string path = file("tables.json", text);
    const QovctlRun refused = run({"walk", "--table", "7", "--tables", path});
    EXPECT_EQ(refused.status, 6) << text;
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.err, "qovctl: " + path + why + "\n");
  }
};

TEST_F(QovctlTables, AreThoseOfTheEndpointForDevelopmentWithoutAFile) {
  const QovctlRun told = run({"tables"});
  EXPECT_EQ(told.status, 0) << told.err;
  EXPECT_THAT(told.out, StartsWith("table       number  column       tag  type\n"
                                   "interfaces  1       name         1    String\n"));
  EXPECT_THAT(told.out, EndsWith("processes   3       started      5    Time\n"));
}

TEST_F(QovctlTables, AreThoseOfTheFirstFileThatIsNamed) {
  const std::filesystem::path home = workingDirectory() / "home";
  const std::filesystem::path xdg = workingDirectory() / "xdg";
  const std::string option = file("option.json", tableNamed("option"));
  const std::string variable = file("variable.json", tableNamed("variable"));
  const auto told = [&](const std::vector<std::string>& arguments) {
    const QovctlRun ended = run(arguments);
    EXPECT_EQ(ended.status, 0) << ended.err;
    return ended.out;
  };
  sets({"HOME=" + home.string()});
  EXPECT_THAT(told({"tables"}), HasSubstr("\ninterfaces "));
  configures(home / ".config", "home");
  EXPECT_THAT(told({"tables"}), HasSubstr("\nhome "));
  sets({"HOME=" + home.string(), "XDG_CONFIG_HOME=xdg"});
  configures(xdg, "xdg");
  EXPECT_THAT(told({"tables"}), HasSubstr("\nhome ")) << "a folder that is relative";
  sets({"HOME=" + home.string(), "XDG_CONFIG_HOME=" + xdg.string()});
  EXPECT_THAT(told({"tables"}), HasSubstr("\nxdg "));
  sets({"HOME=" + home.string(), "XDG_CONFIG_HOME=" + xdg.string(), "QOVCTL_TABLES=" + variable});
  EXPECT_THAT(told({"tables"}), HasSubstr("\nvariable "));
  EXPECT_THAT(told({"tables", "--tables", option}), HasSubstr("\noption "));
}

TEST_F(QovctlTables, AreNotReadForWhatHasNoTables) {
  sets({"QOVCTL_TABLES=/nowhere/tables.json"});
  EXPECT_EQ(
      run({"decode", "--text", "5555555503000000000000 00ffffffff fdffffff ffffffff 00000000"})
          .status,
      0);
  EXPECT_EQ(run({"get", "counts", "--endpoint", "no..host:1"}).status, 3);
}

TEST_F(QovctlTables, EndWithOneWhenTheirFileCannotBeRead) {
  sets({"QOVCTL_TABLES=/nowhere/tables.json"});
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"tables"},
                                             {"get", "--table", "1", "1"},
                                             {"walk", "--table", "1"},
                                             {"send", "--command", "1"}}) {
    const QovctlRun failed = run(command);
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(failed.err, "qovctl: /nowhere/tables.json: No such file or directory\n");
  }
  const QovctlRun failed = run({"tables", "--tables", workingDirectory().string()});
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(failed.err, "qovctl: " + workingDirectory().string() + ": Is a directory\n");
  // That of the user's folder is there, but cannot be read.
  const std::filesystem::path file = workingDirectory() / "qovpub" / "tables.json";
  std::filesystem::create_directories(file);
  sets({"XDG_CONFIG_HOME=" + workingDirectory().string()});
  EXPECT_EQ(run({"tables"}).err, "qovctl: " + file.string() + ": Is a directory\n");
}

TEST_F(QovctlTables, EndWithOneWhenTheUsersFileIsALinkToNothing) {
  const std::filesystem::path folder = workingDirectory() / "qovpub";
  std::filesystem::create_directories(folder);
  std::filesystem::create_symlink("gone.json", folder / "tables.json");
  sets({"XDG_CONFIG_HOME=" + workingDirectory().string()});
  const QovctlRun failed = run({"tables"});
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(failed.err,
            "qovctl: " + (folder / "tables.json").string() + ": No such file or directory\n");
  writeFile(folder / "gone.json", tableNamed("linked"));
  EXPECT_THAT(run({"tables"}).out, HasSubstr("\nlinked "));
}

TEST_F(QovctlTables, AreRefusedWithTheLineOfWhatIsNoJson) {
  const auto refused = [&](const std::string& text, const std::string& line) {
    const std::string path = file("tables.json", text);
    const QovctlRun ended = run({"tables", "--tables", path});
    EXPECT_EQ(ended.status, 6) << text;
    EXPECT_THAT(ended.err, StartsWith("qovctl: " + path + ":" + line + ": not JSON: "));
  };
  refused("", "1");
  refused("{\"tables\":\n[}\n", "2");
  refused("{\"tables\":[],\n\n\"tables\":[]}", "3");
  refused("{\"tables\":[]} // all\n", "1");
}

TEST_F(QovctlTables, AreRefusedWithThePlaceOfWhatIsWrong) {
  expectRefused("[]", ": not an object");
  expectRefused("{}", ": tables: missing");
  expectRefused(R"({"tables":[],"more":1})", ": more: unknown key");
  expectRefused(R"({"tables":{}})", ": tables: not an array");
  expectRefused(R"({"tables":[]})", ": tables: empty");
  expectRefused(R"({"tables":[7]})", ": tables[0]: not an object");
  expectRefused(R"({"tables":[{"name":"a","columns":[]}]})", ": tables[0].number: missing");
  expectRefused(R"({"tables":[{"number":1,"columns":[]}]})", ": tables[0].name: missing");
  expectRefused(R"({"tables":[{"number":1,"name":"a"}]})", ": tables[0].columns: missing");
  expectRefused(R"({"tables":[{"number":0,"name":"a","columns":[]}]})",
                ": tables[0].number: 0 is no table");
  expectRefused(R"({"tables":[{"number":4294967296,"name":"a","columns":[]}]})",
                ": tables[0].number: 4294967296 is not within 0 to 4294967295");
  expectRefused(columnsOf(""), ": tables[0].columns: empty");
  for (const std::string name : {"", "7", "a b", "a,b", "a/b", "a:b", "-a"}) {
    expectRefused(tableNamed(name), ": tables[0].name: \"" + name +
                                        "\" is no name: a letter, then letters, digits, \"-\", "
                                        "\"_\", \".\"");
  }
}

TEST_F(QovctlTables, AreRefusedWithThePlaceOfAColumnThatIsWrong) {
  const auto refused = [&](const std::string& column, const std::string& why) {
    expectRefused(columnsOf(R"({"tag":1,"name":"a","type":"Uint"},)" + column),
                  ": tables[0].columns[1]" + why);
  };
  refused("1", ": not an object");
  refused(R"({"name":"b","type":"Uint"})", ".tag: missing");
  refused(R"({"tag":2,"type":"Uint"})", ".name: missing");
  refused(R"({"tag":2,"name":"b"})", ".type: missing");
  refused(R"({"tag":2,"name":"b","type":"Uint","unit":"s"})", ".unit: unknown key");
  refused(R"({"tag":4096,"name":"b","type":"Uint"})", ".tag: 4096 is not within 0 to 4095");
  refused(R"({"tag":-1,"name":"b","type":"Uint"})", ".tag: -1 is not within 0 to 4095");
  refused(R"({"tag":"2","name":"b","type":"Uint"})", ".tag: not an integer of up to 64 bits");
  refused(R"({"tag":2,"name":"b","type":"Number"})", ".type: \"Number\" is no type");
  refused(R"({"tag":2,"name":"b c","type":"Uint"})",
          ".name: \"b c\" is no name: a letter, then letters, digits, \"-\", \"_\", \".\"");
}

TEST_F(QovctlTables, AreRefusedWhenSomethingComesTwice) {
  const std::string columns = R"("columns":[{"tag":1,"name":"a","type":"Uint"}]})";
  const std::string things = R"({"tables":[{"number":7,"name":"things",)" + columns + ",";
  expectRefused(things + R"({"number":7,"name":"others",)" + columns + "]}",
                ": tables[1].number: another table has this number");
  expectRefused(things + R"({"number":8,"name":"things",)" + columns + "]}",
                ": tables[1].name: another table has this name");
  const std::string first = R"({"tag":1,"name":"a","type":"Uint"},)";
  expectRefused(columnsOf(first + R"({"tag":1,"name":"b","type":"Uint"})"),
                ": tables[0].columns[1].tag: column \"a\" has this tag");
  expectRefused(columnsOf(first + R"({"tag":2,"name":"a","type":"Uint"})"),
                ": tables[0].columns[1].name: the column with tag 1 has this name");
  expectRefused(columnsOf(R"({"tag":4093,"name":"b","type":"Uint"})"),
                ": tables[0].columns[0].tag: column \"key\" has this tag");
  expectRefused(columnsOf(R"({"tag":2,"name":"status","type":"Enum"})"),
                ": tables[0].columns[0].name: the column with tag 4095 has this name");
}

TEST_F(QovctlTables, AreTakenAtTheirLimits) {
  const std::string text = R"({"tables":[
    {"number":4294967295,"name":"Things.of_2-all","columns":[
      {"tag":0,"name":"a","type":"Invalid"},
      {"tag":4094,"name":"B-1","type":"Time"}]},
    {"number":1,"name":"a","columns":[{"tag":0,"name":"a","type":"Array"}]}]})";
  const QovctlRun told = run({"tables", "--tables", file("tables.json", text)});
  EXPECT_EQ(told.status, 0) << told.err;
  EXPECT_EQ(told.out,
            "table            number      column  tag   type\n"
            "Things.of_2-all  4294967295  a       0     Invalid\n"
            "Things.of_2-all  4294967295  B-1     4094  Time\n"
            "a                1           a       0     Array\n");
}

}  // namespace
}  // namespace qov::test
