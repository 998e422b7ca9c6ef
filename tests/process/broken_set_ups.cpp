#include "tests/process/broken_set_ups.h"

#include <sys/stat.h>
#include <unistd.h>

#include <utility>

namespace qov::test {
namespace {

namespace fs = std::filesystem;
using Agent = AgentProcess;

constexpr const char* kGlobal = "[QOV_GLOBAL]\nPROC_PID=7\n";
constexpr const char* kLog =
    "[LOG_CFG]\nSendTerminal=0\nChkInterval=600\nLogFileMaxSize=10240\nLogFileMaxCnt=3\n"
    "LogLevel=2\n";

using Break = std::function<void(Agent&)>;

Break config(const std::string& text) {
  return [text](Agent& agent) { AgentRoot::write(agent.root().cfgFile(), text); };
}

/// The configuration file gives way to what `make` makes in its place.
Break insteadOfConfig(const std::function<void(const fs::path&)>& make) {
  return [make](Agent& agent) {
    fs::remove(agent.root().cfgFile());
    make(agent.root().cfgFile());
  };
}

Break environment(const std::string& name, const std::string& value) {
  return [name, value](Agent& agent) { agent.setEnvironment(name, value); };
}

Break pid(const std::string& value) {
  return config("[QOV_GLOBAL]\nPROC_PID=" + value + "\n" + kLog);
}

Break logWithout(const std::string& key) {
  std::string text = std::string(kGlobal) + kLog;
  const std::size_t start = text.find("\n" + key + "=") + 1;
  return config(text.erase(start, text.find('\n', start) + 1 - start));
}

Break insteadOfLogFolder(const std::function<void(const fs::path&)>& make) {
  return [make](Agent& agent) {
    fs::remove(agent.root().path() / "log");
    make(agent.root().path() / "log");
  };
}

Break modules(const std::vector<std::string>& names) {
  return [names](Agent& agent) { agent.useModules(names); };
}

/// The module "broken" fails in this way.
Break module(const std::string& way) {
  return [way](Agent& agent) {
    agent.setEnvironment("QOV_TEST_BREAK", way);
    agent.useModules({"broken"});
  };
}

/// Module "odd" has a library file that `make` makes.
Break library(const std::function<void(const fs::path&)>& make) {
  return [make](Agent& agent) {
    const fs::path directory = agent.root().path() / "lib";
    fs::create_directory(directory);
    make(directory / "libqovp_odd.so");
    agent.setEnvironment("LD_LIBRARY_PATH", directory.string());
    agent.useModules({"odd"});
  };
}

Break markers(const std::vector<std::string>& files) {
  return [files](Agent& agent) {
    for (const std::string& file : files) {
      AgentRoot::write(agent.root().confDirectory() / file, "");
    }
  };
}

std::string noSuchModule(const std::string& name) {
  return "Failed to load module qovp_" + name + ", because module file doesn't exist!\n";
}

std::string tooShort(const fs::path& from) {
  return readFile(from).substr(0, 32);
}

/// The library `from`, with another byte in its ELF header.
std::string withByte(const fs::path& from, std::size_t at, char value) {
  std::string text = readFile(from);
  text.at(at) = value;
  return text;
}

std::vector<BrokenSetUp> ofTheConfiguration() {
  const std::string read = "Failed to read the configuration: <conf>qov_test_agent.cfg";
  const std::string open = "CQOV_Exception: can't open proc config file\n";
  const std::string noLine = ": neither [section] nor key=value nor a comment\n";
  const std::string noKey = ": a value outside of a section, or a key that cannot be one\n";
  return {
      {"NoFile",
       insteadOfConfig([](const fs::path&) {}),
       {read + ": No such file or directory\n", open}},
      {"Directory",
       insteadOfConfig([](const fs::path& at) { fs::create_directory(at); }),
       {read + ": it is a directory\n", open}},
      {"Pipe",
       insteadOfConfig([](const fs::path& at) { ::mkfifo(at.c_str(), 0600); }),
       {read + ": it is no regular file\n", open}},
      {"Device",
       insteadOfConfig([](const fs::path& at) { fs::create_symlink("/dev/zero", at); }),
       {read + ": it is no regular file\n", open}},
      {"LinkToNothing",
       insteadOfConfig([](const fs::path& at) { fs::create_symlink("gone", at); }),
       {read + ": No such file or directory\n", open}},
      {"LinkToItself",
       insteadOfConfig([](const fs::path& at) { fs::create_symlink(at, at); }),
       {read + ": Too many levels of symbolic links\n", open}},
      {"NotReadable",
       [](Agent& agent) { ::chmod(agent.root().cfgFile().c_str(), 0); },
       {read + ": Permission denied\n", open},
       Result::kFails,
       Log::kNotYet,
       true},
      {"NoDirectory",
       [](Agent& agent) { fs::remove_all(agent.root().confDirectory()); },
       {read + ": No such file or directory\n", open}},
      {"FileForDirectory",
       [](Agent& agent) {
         fs::remove_all(agent.root().confDirectory());
         AgentRoot::write(agent.root().confDirectory(), "");
       },
       {read + ": Not a directory\n", open}},
      {"Empty",
       config(""),
       {read + ": QOV_GLOBAL: there is no such section\n",
        "CQOV_Exception: can't open section name is PROC!\n"}},
      {"ByteOrderMark",
       config(std::string("\xEF\xBB\xBF") + kGlobal),
       {read + ":1: the file begins with a byte order mark\n", open}},
      {"LineWithoutEqualsSign",
       config(std::string(kGlobal) + "\nLOG\n"),
       {read + ":4" + noLine, open}},
      {"HeaderWithoutEnd", config("[QOV_GLOBAL\nPROC_PID=7\n"), {read + ":1" + noLine, open}},
      {"LastLineCutOff", config(std::string(kGlobal) + "[LOG_C"), {read + ":3" + noLine, open}},
      {"ValueBeforeSection",
       config("PROC_PID=7\n" + std::string(kGlobal)),
       {read + ":1" + noKey, open}},
      {"KeyWithBracket", config(std::string(kGlobal) + "k[0]=1\n"), {read + ":3" + noKey, open}},
      {"LineOfNoKey",
       config(std::string(kGlobal) + "=1\n"),
       {read + ":3: begins with \"=\" or a zero byte\n", open}},
      {"ZeroByte",
       config(std::string(kGlobal) + std::string("\0\n", 2)),
       {read + ":3: begins with \"=\" or a zero byte\n", open}},
      {"NoSection",
       config(kLog),
       {read + ": QOV_GLOBAL: there is no such section\n",
        "CQOV_Exception: can't open section name is PROC!\n"}},
      {"SectionInSmallLetters",
       config("[qov_global]\nPROC_PID=7\n"),
       {read + ": QOV_GLOBAL: there is no such section\n"}},
      {"NoProcPid",
       config("[QOV_GLOBAL]\nNAME=x\n"),
       {read + ": QOV_GLOBAL/PROC_PID: there is no such key\n",
        "CQOV_Exception: can't get PROC_PID from section name is PROC!\n"}},
      {"RootEmpty",
       environment("QOV_ROOT", ""),
       {"Failed to read the configuration: /conf/qov_test_agent/qov_test_agent.cfg: No such file",
        "; the environment variable QOV_ROOT is not set or empty\n", open}},
      {"RootMissing",
       environment("QOV_ROOT", "/nowhere"),
       {"Failed to read the configuration: /nowhere/conf/qov_test_agent/qov_test_agent.cfg: No "
        "such "
        "file or directory\n",
        open}},
      {"RootIsFile",
       environment("QOV_ROOT", "/etc/passwd"),
       {"Failed to read the configuration: /etc/passwd/conf/", ": Not a directory\n", open}},
      {"RootRelative", environment("QOV_ROOT", "no/such"), {": no/such"}},
      {"RootWithBackslash", environment("QOV_ROOT", "\\nowhere"), {": /nowhere/conf/", open}},
  };
}

std::vector<BrokenSetUp> ofTheProcessId() {
  std::vector<BrokenSetUp> rows;
  const auto add = [&](const char* name, const std::string& value, const std::string& taken) {
    rows.push_back({name,
                    pid(value),
                    {"Failed to take a value as it stands: <conf>qov_test_agent.cfg: "
                     "QOV_GLOBAL/PROC_PID: \"" +
                     value + "\" is no number from 0 to 255; " + taken + " is taken\n"},
                    Result::kWarns,
                    Log::kFile});
  };
  add("PidOfLetters", "abc", "0");
  add("PidWithLetters", "42abc", "42");
  add("PidNegative", "-1", "4294967295");
  add("PidTooLarge", "256", "256");
  add("PidFarTooLarge", "99999999999999999999", "4294967295");
  add("PidEmpty", "", "0");
  add("PidWithAPoint", "7.5", "7");
  return rows;
}

/// `value` takes the place of the one that `key` has; of an optional key it is the only one.
Break logWith(const std::string& key, const std::string& value) {
  std::string text = std::string(kGlobal) + kLog;
  if (text.find("\n" + key + "=") == std::string::npos) {
    return config(text + key + "=" + value + "\n");
  }
  const std::size_t start = text.find("\n" + key + "=") + key.size() + 2;
  return config(text.replace(start, text.find('\n', start) - start, value));
}

std::vector<BrokenSetUp> ofTheLogsValues() {
  std::vector<BrokenSetUp> rows;
  const auto add = [&](const char* name, const std::string& key, const std::string& value,
                       const std::string& says) {
    rows.push_back({name,
                    logWith(key, value),
                    {"Failed to take a value as it stands: <conf>qov_test_agent.cfg: LOG_CFG/" +
                     key + ": \"" + value + "\" is " + says + " is taken\n"},
                    Result::kWarns,
                    Log::kFile});
  };
  add("LogLevelAsAWord", "LogLevel", "verbose", "no whole number, 0");
  add("LogLevelEmpty", "LogLevel", "", "no whole number, 0");
  add("LogLevelNegative", "LogLevel", "-1", "out of range, 0");
  add("SendTerminalAsAWord", "SendTerminal", "no", "no whole number, 0");
  add("ChkIntervalNegative", "ChkInterval", "-1", "out of range, 0");
  add("ChkIntervalWithAUnit", "ChkInterval", "10min", "no whole number, 10");
  add("LogFileMaxSizeWithAUnit", "LogFileMaxSize", "10MB", "no whole number, 10");
  add("LogFileMaxSizeTooLarge", "LogFileMaxSize", "2147483648", "out of range, 2147483647");
  add("LogFileMaxCntZero", "LogFileMaxCnt", "0", "out of range, 1");
  add("LogFoldAsAWord", "LogFold", "on", "no whole number, 0");
  add("LogJsonNegative", "LogJson", "-1", "out of range, 0");
  add("LogEscapeTwo", "LogEscape", "2", "out of range, 1");
  return rows;
}

std::vector<BrokenSetUp> ofTheLog() {
  std::vector<BrokenSetUp> rows;
  const auto add = [&](const char* name, const Break& breakIt, const std::string& says,
                       bool notAsRoot = false) {
    rows.push_back({name, breakIt, {says}, Result::kWarns, Log::kNone, notAsRoot});
  };
  const std::string configure = "Failed to configure the log: <conf>qov_test_agent.cfg: LOG_CFG";
  const std::string open = "Failed to open the log: <root>/log/qov_test_agent.log: ";
  add("NoLogSection", config(kGlobal), configure + ": there is no such section");
  for (const char* key :
       {"SendTerminal", "ChkInterval", "LogFileMaxSize", "LogFileMaxCnt", "LogLevel"}) {
    add(key, logWithout(key), configure + "/" + key + ": there is no such key");
  }
  add("NoLogFolder", insteadOfLogFolder([](const fs::path&) {}),
      open + "there is no directory <root>/log/");
  add(
      "NoLogFolderAndErrorsOnly",
      [](Agent& agent) {
        agent.root().writeConfig(5);
        fs::remove(agent.root().path() / "log");
      },
      open + "there is no directory <root>/log/");
  add("FileForLogFolder", insteadOfLogFolder([](const fs::path& at) { AgentRoot::write(at, ""); }),
      open + "Not a directory");
  add("LinkForLogFolder",
      insteadOfLogFolder([](const fs::path& at) { fs::create_symlink("gone", at); }),
      open + "there is no directory <root>/log/");
  add(
      "LogIsDirectory", [](Agent& agent) { fs::create_directory(agent.root().logFile()); },
      open + "Is a directory");
  add(
      "LogIsSocket",
      [](Agent& agent) { ::mknod(agent.root().logFile().c_str(), S_IFSOCK | 0600, 0); },
      open + "No such device or address; records go to standard error");
  add(
      "LogIsPipe", [](Agent& agent) { ::mkfifo(agent.root().logFile().c_str(), 0600); },
      open + "a pipe takes nothing while nobody reads it; records go to standard error");
  rows.back().check = Check::kWarning;
  rows.push_back({"LogPathTooLong",
                  [](Agent& agent) { useLogPathOf(256, agent); },
                  {"d/log/qov_test_agent.log: it is too long; records go to <root>/d"},
                  Result::kWarns});
  add(
      "LogFolderNotWritable",
      [](Agent& agent) { ::chmod((agent.root().path() / "log").c_str(), 0500); },
      open + "Permission denied", true);
  rows.push_back({"NoModuleAndALogOnTheTerminal",
                  config(std::string(kGlobal) +
                         "[LOG_CFG]\nSendTerminal=1\nChkInterval=600\nLogFileMaxSize=1\n"
                         "LogFileMaxCnt=3\nLogLevel=2\n"),
                  {"Failed to find a module: <conf>: the directory has no file <module>.mod\n"},
                  Result::kFails,
                  Log::kNone});
  return rows;
}

std::vector<BrokenSetUp> ofTheLibraries() {
  std::vector<BrokenSetUp> rows;
  const auto add = [&](const char* name, const Break& breakIt, std::vector<std::string> says,
                       bool notAsRoot = false) {
    rows.push_back({name, breakIt, std::move(says), Result::kFails, Log::kFile, notAsRoot});
  };
  const std::string failed = "Failed to open the library of module qovp_odd: ";
  const std::string path = failed + "<root>/lib/libqovp_odd.so: ";
  const std::string failedNeeding = "Failed to open the library of module qovp_needing: " +
                                    std::string(QOV_TEST_AGENT_LIBRARIES) + "/";
  const fs::path real = fs::path(QOV_TEST_AGENT_LIBRARIES) / "libqovp_state.so";
  add("NoModules", [](Agent&) {},
      {"Failed to load module, because module is empty!\n",
       "Failed to find a module: <conf>: the directory has no file <module>.mod\n"});
  add("NoMarkerAccepted", markers({"a.mod.mod", ".mod", "b.mod.bak"}),
      {"<conf>a.mod.mod: its first .mod is not the end of its name\n",
       "<conf>.mod: no module's name stands before .mod\n",
       "<conf>b.mod.bak: its first .mod is not the end of its name\n",
       "the directory has no file <module>.mod\n"});
  add("NoLibrary", modules({"nowhere"}),
      {noSuchModule("nowhere"),
       "none of libqovp_nowhere.so, qovp_nowhere.so, qovp_nowhere is in LD_LIBRARY_PATH (" +
           std::string(QOV_TEST_AGENT_LIBRARIES) + ")"});
  add("NoLibraryPath",
      [](Agent& agent) {
        agent.setEnvironment("LD_LIBRARY_PATH", "");
        agent.useModules({"state"});
      },
      {noSuchModule("state"), "LD_LIBRARY_PATH (not set)"});
  add("LibraryEmpty", library([](const fs::path& at) { AgentRoot::write(at, ""); }),
      {noSuchModule("odd"), path + "file too short\n"});
  add("LibraryOfText",
      library([](const fs::path& at) { AgentRoot::write(at, std::string(4096, 'x')); }),
      {noSuchModule("odd"), path + "invalid ELF header\n"});
  add("LibraryCutOff",
      library([real](const fs::path& at) { AgentRoot::write(at, tooShort(real)); }),
      {noSuchModule("odd"), path + "file too short\n"});
  add("LibraryIsDirectory", library([](const fs::path& at) { fs::create_directory(at); }),
      {noSuchModule("odd"), path + "cannot read file data: Is a directory\n"});
  add("LibraryIsLinkToNothing", library([](const fs::path& at) { fs::create_symlink("gone", at); }),
      {noSuchModule("odd"), failed + "none of libqovp_odd.so"});
  add("LibraryNotReadable", library([real](const fs::path& at) {
        fs::copy_file(real, at);
        ::chmod(at.c_str(), 0);
      }),
      {noSuchModule("odd"), path + "Permission denied\n"}, true);
  add("LibraryFolderNotSearchable", library([real](const fs::path& at) {
        fs::copy_file(real, at);
        ::chmod(at.parent_path().c_str(), 0);
      }),
      {noSuchModule("odd"), path + "Permission denied\n"}, true);
  add("LibraryIsLinkToItself", library([](const fs::path& at) { fs::create_symlink(at, at); }),
      {noSuchModule("odd"), path + "Too many levels of symbolic links\n"});
  add("LibraryOfAnotherMachine", library([real](const fs::path& at) {
        constexpr std::size_t kMachine = 18;
        constexpr char kAarch64 = '\xB7';
        AgentRoot::write(at, withByte(real, kMachine, kAarch64));
      }),
      {noSuchModule("odd"), path + "not a library for this machine\n"});
  add("LibraryOf32Bits", library([real](const fs::path& at) {
        constexpr std::size_t kClass = 4;
        constexpr char k32Bits = 1;
        AgentRoot::write(at, withByte(real, kClass, k32Bits));
      }),
      {noSuchModule("odd"), path + "libqovp_odd.so: wrong ELF class: ELFCLASS32\n"});
  add("LibraryNeedsAnother", modules({"needing"}),
      {noSuchModule("needing"),
       failedNeeding + "libqovp_needing.so: libqovp_gone.so: cannot open shared object file: No "
                       "such file or directory\n"});
  add("LibraryNeedsAVariable", modules({"unbound"}),
      {noSuchModule("unbound"), "libqovp_unbound.so: undefined symbol: qovTestNowhere\n"});
  return rows;
}

std::vector<BrokenSetUp> ofTheModules() {
  std::vector<BrokenSetUp> rows;
  const std::string library = std::string(QOV_TEST_AGENT_LIBRARIES) + "/libqovp_broken.so: ";
  const auto add = [&](const char* name, const char* way, std::vector<std::string> says) {
    rows.push_back({name, module(way), std::move(says), Result::kFails, Log::kFile});
    rows.back().check = Check::kNothing;
  };
  const auto addCreating = [&](const char* name, const char* way, std::vector<std::string> says) {
    add(name, way, std::move(says));
    rows.back().check = Check::kWithCreate;
  };
  const std::string null = "Failed to load module qovp_broken, because module object is null!\n";
  const std::string init = "Failed to init module qovp_broken!\n";
  rows.push_back({"NoEntryFunction",
                  modules({"plugin"}),
                  {"Failed to load module qovp_plugin, because entry function QOV_CreateModule is "
                   "null!\n",
                   "/libqovp_plugin.so: the library does not export QOV_CreateModule\n"},
                  Result::kFails,
                  Log::kFile});
  addCreating("EntryGivesNull", "null", {null, library + "QOV_CreateModule returned null\n"});
  addCreating("EntryThrows", "entry_throws", {null, library + "the entry's own words\n"});
  addCreating("EntryThrowsANumber", "entry_throws_number",
              {null, library + "an exception that is no std::exception\n"});
  addCreating("ConstructorThrows", "constructor_throws",
              {null, library + "the constructor's own words\n"});
  add("InitGivesFalse", "", {init, library + "init() returned false\n"});
  add("InitThrows", "init_throws", {init, library + "the module's own words\n"});
  add("InitThrowsANumber", "init_throws_number",
      {init, library + "an exception that is no std::exception\n"});
  const std::string endpoint = "<conf>qov_test_agent.cfg: MMT/MMT_ADDR: ";
  rows.push_back({"EndpointWithoutPort",
                  [](Agent& agent) {
                    config(std::string(kGlobal) + kLog + "[MMT]\nMMT_ADDR=somewhere\n")(agent);
                    module("unconnected")(agent);
                  },
                  {"Failed to read the management endpoint: " + endpoint +
                       "\"somewhere\" is not host:port; no endpoint is taken in its place\n",
                   "Failed to connect to the management endpoint somewhere: " + endpoint +
                       "this is not host:port\n",
                   init},
                  Result::kFails,
                  Log::kFile});
  addCreating("GidTooLarge", "gid_256",
              {"gid(256) is invalid which module name is qovp_broken!\n",
               library + "a gid is a number from 0 to 255\n"});
  rows.push_back({"GidTaken",
                  [](Agent& agent) {
                    agent.useModules({"chatter", "third_chatter"});
                  },
                  {"gid(1) is invalid which module name is qovp_", " has this gid\n"},
                  Result::kFails,
                  Log::kFile});
  rows.back().check = Check::kWithCreate;
  add("PlugInMissing", "plugin_missing",
      {"Failed to open qovp_no_such_plugin\n",
       "Failed to open the library of a plug-in: qovp_no_such_plugin: none of "
       "libqovp_no_such_plugin.so,",
       init});
  add("PlugInPathMissing", "plugin_path",
      {"Failed to open /no/such_plugin\n",
       "Failed to open the library of a plug-in: /no/such_plugin: there is none of "
       "/no/libsuch_plugin.so, /no/such_plugin.so, /no/such_plugin\n",
       init});
  add("PlugInBeyondTheNames", "plugin_no_name_left",
      {"Failed to open qovp_plugin\n",
       "Failed to open the library of a plug-in: qovp_plugin: 1024 library names are in use\n",
       init});
  add("PlugInRefused", "plugin_refused",
      {"Failed to init qovp_plugin\n", "/libqovp_plugin.so: the plug-in's operator refuses it\n",
       init});
  rows.back().letsALibraryGo = true;
  add("PlugInThrows", "plugin_throws",
      {"Failed to init qovp_plugin\n", "/libqovp_plugin.so: the operator's own words\n", init});
  rows.back().letsALibraryGo = true;
  return rows;
}

std::vector<BrokenSetUp> ofModulesThatEndTheProcess() {
  std::vector<BrokenSetUp> rows;
  const auto add = [&](const char* name, const char* way, const std::string& end, int exitStatus,
                       int signal) {
    rows.push_back({name,
                    module(way),
                    {"Failed to start the daemon: ended " + end +
                     " before it ran, while loading module qovp_broken\n"},
                    Result::kEnds,
                    Log::kNotYet,
                    false,
                    exitStatus,
                    signal,
                    false,
                    Check::kNothing});
  };
  add("ModuleExitsWithZero", "exit_0", "with exit status 0", 0, 0);
  add("ModuleExits", "exit_3", "with exit status 3", 3, 0);
  add("ModuleExitsAtOnce", "_exit_4", "with exit status 4", 4, 0);
  add("ModuleAborts", "abort", "by signal 6 (Aborted)", -1, SIGABRT);
  add("ModuleIsKilled", "kill", "by signal 9 (Killed)", -1, SIGKILL);
  add("EntryKills", "entry_kills", "by signal 9 (Killed)", -1, SIGKILL);
  rows.back().check = Check::kWithCreate;
  return rows;
}

}  // namespace

const std::vector<BrokenSetUp>& brokenSetUps() {
  static const std::vector<BrokenSetUp> all = [] {
    std::vector<BrokenSetUp> rows;
    for (std::vector<BrokenSetUp> part :
         {ofTheConfiguration(), ofTheProcessId(), ofTheLog(), ofTheLogsValues(), ofTheLibraries(),
          ofTheModules(), ofModulesThatEndTheProcess()}) {
      rows.insert(rows.end(), part.begin(), part.end());
    }
    rows.push_back({"MarkerAndErrorsOnly",
                    [](Agent& agent) {
                      agent.root().writeConfig(5);
                      markers({"c.mod.bak"})(agent);
                    },
                    {"<conf>c.mod.bak: its first .mod is not the end of its name\n"},
                    Result::kWarns,
                    Log::kNotYet});
    rows.back().check = Check::kWarning;
    rows.push_back({"MarkerOfAnEditor",
                    markers({"a.mod~", "c.mod.bak"}),
                    {"<conf>c.mod.bak: its first .mod is not the end of its name\n",
                     "<conf>a.mod~: its first .mod is not the end of its name\n"},
                    Result::kWarns,
                    Log::kFile});
    rows.back().check = Check::kWarning;
    return rows;
  }();
  return all;
}

void useLogPathOf(std::size_t length, AgentProcess& agent) {
  const std::string root = agent.root().path();
  const std::size_t shortest = agent.root().logFile().string().size() + 1;
  const std::string longer = root + "/" + std::string(length - shortest, 'd');
  fs::create_directory_symlink(root, longer);
  agent.setEnvironment("QOV_ROOT", longer);
}

std::string filledIn(std::string text, const AgentRoot& root) {
  for (const auto& [place, path] : {std::pair<std::string, std::string>{"<root>", root.path()},
                                    {"<conf>", root.confDirectory().string() + "/"}}) {
    for (std::size_t at = text.find(place); at != std::string::npos; at = text.find(place)) {
      text.replace(at, place.size(), path);
    }
  }
  return text;
}

}  // namespace qov::test
