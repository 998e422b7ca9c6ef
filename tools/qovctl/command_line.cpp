#include "tools/qovctl/command_line.h"

#include <ace/Log_Msg.h>

#include <limits>
#include <optional>

#include "tools/qovctl/failure.h"
#include "tools/qovctl/streams.h"
#include "tools/qovctl/tables.h"

namespace qov::ctl {
namespace {

constexpr std::uint64_t kMaxKey = std::numeric_limits<std::uint64_t>::max();

constexpr const char* kEnding = R"(
Exit status:
  0  done
  1  a file, the output or memory failed
  2  the command line is not understood; of check: there are problems
  3  no connection to the endpoint or agent, or it was lost before the reply was there
  4  no reply in time
  5  the endpoint refused the request (RET, which is printed) or ended a walk with a status; the
     agent refused it
  6  bad data: the input, or a reply, is not what it should be
  7  a walk stopped after 10000 rows; its table may have more
What went wrong is one line on standard error. When nobody reads its output any more the program
ends by SIGPIPE, as others do.)";

constexpr const char* kResending = R"(
A request that no reply came to is sent once more, on a new connection, before the command gives
up: a request may take its time-outs twice, and the endpoint may have served it twice. A note on
standard error says so.)";

constexpr const char* kDecodeText = R"(
Each message is printed as the agents' logs have it, or with --json as a document
{"kind":K,"messages":[...]} for each row of messages of one kind. At the first bytes that are no
message the command ends with status 6 and says where and why: head-short, magic, version, type,
length, record-short, record-length, cell-short, cell-type or cell-length. A cell without a value is
shown as a receiver has it: tag 4094, type Invalid. The input, of up to 256 MiB, is read to its end
first.
Hexadecimal text is groups of digits, apart by blanks, colons or lines, each with or without 0x; a
"#" starts a comment that goes to the end of the line.)";

constexpr const char* kGetText = R"(For example:
  qovctl get --table interfaces 2
  qovctl get counts)";

constexpr const char* kWalkText = R"(
Each row is printed as it comes. A column is as wide as its widest value so far (8 to 60
characters); the line of names comes again with a row that has one more column. --json has a message
for each row, --dump each reply that refuses nothing, as the logs would have it. A walk stops after
10000 rows; --after goes on behind the last key.)";

constexpr const char* kSendText = R"(
The file holds one V3 message as "qovctl decode --json" prints it; what has a default and all
lengths may be left out. On the command line a message is made of --command, which begins a record,
and --cell, which adds to it:
  qovctl send --command store/0x1000 --cell 1:String:hello --cell 2:Uint:5
COMMAND is a number, or get-next, get, store or counts, a slash and a table. TYPE is Invalid, Octet
(VALUE in hexadecimal digits), String, Uint, Int, Bool, Enum, Time (numbers, 16 or 0x10), Array or
Json (JSON text); a Bool may be true or false. The link gives the message a serial number of its
own. The reply is printed whatever its RET.)";

constexpr const char* kCheckText = R"(
Reads configuration, device configuration and markers as a start does, and opens the libraries of
the modules in a child process; LD_LIBRARY_PATH should be the agents'. Opens no file for writing and
starts nothing, so that what a module's own code may refuse is left to the start.
Each problem is a line on standard error, FILE:LINE: what. "warning:" stands before what is
ignored: unknown keys, keys that come again, other files with .mod in their names; the status is 0
with warnings alone.
For example:
  qovctl check --root /opt/agent --process devagent)";

std::string checkEndpoint(const std::string& text) {
  return EndpointLink::isEndpoint(text) ? "" : "not host:port, with a port of 1 to 65535";
}

std::string checkTimeout(const std::string& text) {
  double seconds = 0;
  const bool number = CLI::detail::lexical_cast(text, seconds);
  return number && seconds >= 0.001 && seconds <= 86400 ? "" : "not within 0.001 to 86400 seconds";
}

std::string checkProcess(const std::string& text) {
  return text.empty() || text.find('/') != std::string::npos ? "no process's name" : "";
}

std::string checkTable(const std::string& text) {
  return tableOfText(text) ? "" : "no table: interfaces, mounts, processes or a number";
}

std::string checkKey(const std::string& text) {
  return numberOf(text, kMaxKey) ? "" : "no number of up to 64 bits";
}

std::string checkKeyOrCounts(const std::string& text) {
  return text == "counts" ? "" : checkKey(text);
}

/// What the library logs goes to standard error, or nowhere.
void setLibraryLog(bool on) {
  constexpr u_long kAll = LM_DEBUG | LM_INFO | LM_NOTICE | LM_WARNING | LM_ERROR | LM_CRITICAL;
  ACE_Log_Msg::instance()->priority_mask(on ? kAll : 0, ACE_Log_Msg::PROCESS);
}

}  // namespace

CommandLine::CommandLine()
    : app_(
          "Speaks with a management endpoint, shows what its messages hold, checks the set-up of "
          "agents, and asks running ones. Only the last needs an agent.",
          "qovctl") {
  app_.require_subcommand(0, 1);
  app_.footer(std::string("Each command has its own --help.\n") + kEnding);
  addGet();
  addWalk();
  addSend();
  addDecode();
  addCheck();
  agent_.addTo(app_, command_);
}

void CommandLine::addDecode() {
  CLI::App* const command = app_.add_subcommand("decode", "Print messages given as bytes");
  auto* const file =
      command->add_option("FILE", decode_.file, "Bytes; \"-\" or nothing: standard input");
  auto* const hex = command->add_flag("--hex", decode_.hex, "The input is hexadecimal text");
  command->add_option("--text", decode_.text, "Hexadecimal text in place of the input")
      ->excludes(file)
      ->excludes(hex);
  command
      ->add_option("--kind", kind_,
                   "v3, internal or om; auto: what the magic number and the flags of each message "
                   "tell")
      ->check(CLI::IsMember({"auto", "v3", "internal", "om"}))
      ->capture_default_str();
  command->add_flag("--json", decode_.json, "Print JSON");
  command->footer(std::string(kDecodeText) + "\n" + kEnding);
  command->callback([this] {
    command_ = [this] {
      decode_.kind = kindOf(kind_);
      decode(decode_);
    };
  });
}

void CommandLine::addCheck() {
  CLI::App* const command =
      app_.add_subcommand("check", "Look for what keeps agents from starting, and start none");
  command->add_option("--root", check_.root,
                      "The agents' root directory; what QOV_ROOT says if there is none");
  command
      ->add_option("--process", check_.process,
                   "Name of the process; otherwise each one with a configuration file")
      ->check(checkProcess);
  command->add_flag("--create", check_.create,
                    "Also call the modules' entry functions, as a start does, for faults of their "
                    "constructors and ids that two modules have");
  command
      ->add_option("--timeout", check_.timeout,
                   "Seconds (0.001 to 86400) that opening a module's library may take")
      ->check(checkTimeout)
      ->capture_default_str();
  command->footer(std::string(kCheckText) + "\n" + kEnding);
  command->callback([this] { command_ = [this] { check(check_); }; });
}

CLI::App* CommandLine::addEndpointCommand(const std::string& name, const std::string& description) {
  CLI::App* const command = app_.add_subcommand(name, description);
  command
      ->add_option(
          "--endpoint", target_.endpoint,
          "Where the endpoint listens, as HOST:PORT or [HOST]:PORT; the host's addresses are "
          "tried in turn")
      ->check(checkEndpoint)
      ->capture_default_str();
  command
      ->add_option(
          "--timeout", target_.timeout,
          "Seconds (0.001 to 86400) for sending, for the head of the reply and for the rest of it, "
          "each. Connecting takes at most 2 seconds, or this time if that is shorter")
      ->check(checkTimeout)
      ->capture_default_str();
  command->add_flag("--verbose", verbose_, "Show on standard error what the link logs");
  return command;
}

void CommandLine::addTable(CLI::App* command, const std::string& when) {
  command
      ->add_option("--table", table_,
                   "interfaces, mounts, processes or a number (4096, 0x1000)" + when)
      ->check(checkTable);
}

void CommandLine::addFormats(CLI::App* command, const std::string& otherwise) {
  auto* const json = command->add_flag("--json", json_, "Print JSON, as decode --json does");
  command->add_flag("--dump", dump_, "Print what the agents' logs would have" + otherwise)
      ->excludes(json);
}

void CommandLine::addGet() {
  CLI::App* const command = addEndpointCommand("get", "Print one row of a table, or the counts");
  addTable(command, "; required with a key");
  command->add_option("KEY", key_, "The row's key; or \"counts\": what the endpoint has counted")
      ->required()
      ->check(checkKeyOrCounts);
  addFormats(command, "");
  command->footer(std::string(kGetText) + "\n" + kResending + "\n" + kEnding);
  command->callback([this, command] {
    const bool counts = key_ == "counts";
    if (counts == (command->count("--table") > 0)) {
      throw CLI::ValidationError(counts ? "counts are of no --table"
                                        : "--table is required with a key");
    }
    command_ = [this, counts] {
      if (counts) {
        getCounts(endpointOptions());
      } else {
        getRow(endpointOptions(), *tableOfText(table_), *numberOf(key_, kMaxKey));
      }
    };
  });
}

void CommandLine::addWalk() {
  CLI::App* const command = addEndpointCommand("walk", "Print all rows of a table");
  addTable(command, "");
  command->get_option("--table")->required();
  command->add_option("--after", key_, "Begin behind the row with this key")->check(checkKey);
  addFormats(command, "");
  command->footer(std::string(kWalkText) + "\n" + kResending + "\n" + kEnding);
  command->callback([this] {
    command_ = [this] {
      const auto after = key_.empty() ? std::nullopt : numberOf(key_, kMaxKey);
      walk(endpointOptions(), *tableOfText(table_), after);
    };
  });
}

void CommandLine::addSend() {
  CLI::App* const command = addEndpointCommand("send", "Send a message and print the reply");
  auto* const file =
      command->add_option("FILE", file_, "The message in JSON; \"-\": standard input");
  command->add_option("--command", commands_, "COMMAND of a record")
      ->allow_extra_args(false)
      ->excludes(file);
  command->add_option("--cell", cells_, "TAG:TYPE:VALUE of a cell of the record before it")
      ->allow_extra_args(false)
      ->excludes(file);
  addFormats(command, "; the default");
  command->footer(std::string(kSendText) + "\n" + kResending + "\n" + kEnding);
  command->callback([this, command] {
    if (file_.empty() && commands_.empty()) {
      throw CLI::ValidationError("FILE or --command is required");
    }
    command_ = [this, command] {
      if (file_.empty()) {
        sendParts(endpointOptions(), requestParts(*command));
      } else {
        sendFile(endpointOptions(), file_);
      }
    };
  });
}

EndpointOptions CommandLine::endpointOptions() const {
  const Format otherwise = dump_ ? Format::kDump : Format::kRows;
  return {target_, json_ ? Format::kJson : otherwise};
}

std::vector<RequestPart> CommandLine::requestParts(const CLI::App& send) const {
  std::vector<RequestPart> parts;
  auto command = commands_.begin();
  auto cell = cells_.begin();
  for (const CLI::Option* option : send.parse_order()) {
    if (option->check_name("--command")) {
      parts.push_back({false, *command++});
    } else if (option->check_name("--cell")) {
      parts.push_back({true, *cell++});
    }
  }
  return parts;
}

void CommandLine::parse(int argc, char** argv) try {
  app_.parse(argc, argv);
  if (!command_) {
    throw Failure(kUsage,
                  "a command is required: get, walk, send, decode, check or agent (--help says "
                  "more)");
  }
} catch (const CLI::CallForHelp&) {
  command_ = [this] { print(app_.help()); };
} catch (const CLI::ParseError& e) {
  throw Failure(kUsage, std::string(e.what()) + " (--help says more)");
}

void CommandLine::run(int argc, char** argv) {
  parse(argc, argv);
  setLibraryLog(verbose_);
  command_();
}

}  // namespace qov::ctl
