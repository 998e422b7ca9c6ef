#include "tools/qovctl/command_line.h"

#include <ace/Log_Msg.h>
#include <qovpub/qov_version.h>

#include "tools/qovctl/failure.h"
#include "tools/qovctl/option_checks.h"
#include "tools/qovctl/streams.h"

namespace qov::ctl {
namespace {

constexpr const char* kEnding = R"(
Exit status:
  0  done
  1  a file, the output or memory failed
  2  the command line is not understood; of check: there are problems
  3  no connection to the endpoint, agent or broker, or it was lost before the reply was there;
     the broker does not know the agents
  4  no reply in time
  5  the endpoint refused the request (RET, which is printed) or ended a walk with a status; the
     agent or broker refused it
  6  bad data: the input, or a reply, is not what it should be
  7  a walk stopped after 10000 rows; its table may have more;
     something is missing in a bundle; agents of a fleet have not answered
What went wrong is one line on standard error. When nobody reads its output any more the program
ends by SIGPIPE, as others do.)";

constexpr const char* kDecodeText = R"(
Each message is printed as the agents' logs have it, or with --json as a document
{"kind":K,"messages":[...]} for each row of messages of one kind. At the first bytes that are no
message the command ends with status 6 and says where and why: head-short, magic, version, type,
length, record-short, record-length, cell-short, cell-type or cell-length. A cell without a value is
shown as a receiver has it: tag 4094, type Invalid. The input, of up to 256 MiB, is read to its end
first.
Hexadecimal text is groups of digits, apart by blanks, colons or lines, each with or without 0x; a
"#" starts a comment that goes to the end of the line.)";

constexpr const char* kCheckText = R"(
Reads configuration, device configuration and markers as a start does, and opens the libraries of
the modules in a child process; LD_LIBRARY_PATH should be the agents'. Opens no file for writing and
starts nothing, so that what a module's own code may refuse is left to the start.
Each problem is a line on standard error, FILE:LINE: what. "warning:" stands before what is
ignored: unknown keys, keys that come again, other files with .mod in their names; the status is 0
with warnings alone.
For example:
  qovctl check --root /opt/agent --process devagent)";

std::string checkProcess(const std::string& text) {
  return text.empty() || text.find('/') != std::string::npos ? "no process's name" : "";
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
          "agents, and asks running ones, also through an MQTT broker. Only that needs an agent.",
          "qovctl"),
      endpoint_(app_, command_, kEnding) {
  app_.require_subcommand(0, 1);
  app_.set_version_flag(
      "--version", "qovctl " QOVPUB_VERSION_STRING " with libqovpub " + std::string(QOV_Version()));
  app_.footer(std::string("Each command has its own --help.\n") + kEnding);
  addDecode();
  addCheck();
  agent_.addTo(app_, command_);
  fleet_.addTo(app_, command_, kEnding);
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

void CommandLine::parse(int argc, char** argv) try {
  app_.parse(argc, argv);
  if (!command_) {
    throw Failure(kUsage,
                  "a command is required: get, walk, send, tables, decode, check, agent or fleet "
                  "(--help says more)");
  }
} catch (const CLI::CallForHelp&) {
  command_ = [this] { print(app_.help()); };
} catch (const CLI::CallForVersion& version) {
  command_ = [text = std::string(version.what())] { print(text + "\n"); };
} catch (const CLI::ParseError& e) {
  throw Failure(kUsage, std::string(e.what()) + " (--help says more)");
}

void CommandLine::run(int argc, char** argv) {
  parse(argc, argv);
  setLibraryLog(endpoint_.verbose());
  command_();
}

}  // namespace qov::ctl
