#include "tools/qovctl/endpoint_command_line.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

#include "tools/qovctl/environment.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/help_texts.h"
#include "tools/qovctl/numbers.h"
#include "tools/qovctl/option_checks.h"
#include "tools/qovctl/streams.h"
#include "tools/qovctl/tables_file.h"
#include "tools/qovctl/tables_text.h"

namespace qov::ctl {
namespace {

constexpr const char* kEndpointVariable = "QOVCTL_ENDPOINT";
constexpr std::uint64_t kMaxKey = std::numeric_limits<std::uint64_t>::max();

std::string checkEndpoint(const std::string& text) {
  return EndpointLink::isEndpoint(text) ? "" : "not host:port, with a port of 1 to 65535";
}

std::string checkKey(const std::string& text) {
  return numberOf(text, kMaxKey) ? "" : "no number of up to 64 bits: " + text;
}

std::string checkKeyOrCounts(const std::string& text) {
  return text == "counts" ? "" : checkKey(text);
}

std::uint32_t tableNumber(const Tables& tables, const std::string& text) {
  if (const auto number = tables.tableOfText(text)) {
    return *number;
  }
  std::string names;
  for (const Table& table : tables.all()) {
    names += (names.empty() ? "" : ", ") + table.name;
  }
  throw Failure(kUsage,
                "--table: \"" + shortened(text) + "\" is no table: " + names + " or a number");
}

std::vector<std::uint64_t> keysOf(const std::vector<std::string>& texts) {
  std::vector<std::uint64_t> keys;
  keys.reserve(texts.size());
  for (const std::string& text : texts) {
    keys.push_back(*numberOf(text, kMaxKey));
  }
  return keys;
}

}  // namespace

EndpointCommandLine::EndpointCommandLine(CLI::App& app, std::function<void()>& command,
                                         std::string ending)
    : app_(app), command_(command), ending_(std::move(ending)) {
  if (const std::string endpoint = fromEnvironment(kEndpointVariable); !endpoint.empty()) {
    target_.endpoint = endpoint;
  }
  addGet();
  addWalk();
  addSend();
  addTables();
}

CLI::App* EndpointCommandLine::addCommand(const std::string& name, const std::string& description) {
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
  addNumber(command, "--retries", 100U, target_.retries,
            "How often (0 to 100) a request without a reply is sent again; 1 if left out");
  addIdentity(command);
  command->add_flag("--verbose", verbose_, "Show on standard error what the link logs");
  addTablesFile(command);
  return command;
}

void EndpointCommandLine::addIdentity(CLI::App* command) {
  constexpr auto kMax16 = std::numeric_limits<std::uint16_t>::max();
  addNumber(command, "--ssk", std::numeric_limits<std::uint32_t>::max(), identity_.ssk,
            "Session key (up to 32 bits) in the head of requests; 0xffffffff if left out");
  addNumber(command, "--nid", kMax16, identity_.nid,
            "NID (up to 16 bits) there; 0xfffd if left out");
  addNumber(command, "--bid", kMax16, identity_.bid,
            "BID (up to 16 bits) there; 0xffff if left out");
}

void EndpointCommandLine::addTablesFile(CLI::App* command) {
  command->add_option("--tables", tablesFile_, "JSON file of the endpoint's tables")
      ->check(checkNotEmpty);
}

void EndpointCommandLine::addTable(CLI::App* command, const std::string& when) {
  command->add_option(
      "--table", table_,
      "A name that \"qovctl tables\" prints with the same --tables, or a number (4096, 0x1000)" +
          when);
}

void EndpointCommandLine::addFormats(CLI::App* command) {
  auto* const json = command->add_flag("--json", json_, "Print JSON, as decode --json does");
  command->add_flag("--dump", dump_, "Print what the agents' logs would have")->excludes(json);
}

void EndpointCommandLine::addColumns(CLI::App* command) {
  command
      ->add_option("--columns", columns_,
                   "Print these alone, in this order: names, tags, key and status, with commas "
                   "between them")
      ->check(checkNotEmpty)
      ->excludes("--json")
      ->excludes("--dump");
}

void EndpointCommandLine::setFooter(CLI::App* command, const std::string& text) const {
  command->footer(text + "\n" + kResending + "\n" + kEnvironment + "\n" + ending_);
}

void EndpointCommandLine::addGet() {
  CLI::App* const command = addCommand("get", "Print rows of a table, or the counts");
  addTable(command, "; required with a key");
  command->add_option("KEY", keys_, "The rows' keys; or \"counts\": what the endpoint has counted")
      ->required()
      ->check(checkKeyOrCounts);
  addFormats(command);
  addColumns(command);
  setFooter(command, kGetText);
  command->callback([this, command] {
    const auto counts = std::count(keys_.begin(), keys_.end(), "counts");
    if (counts > 0 && keys_.size() > 1) {
      throw CLI::ValidationError("counts has no key beside it");
    }
    if (counts > 0 && command->count("--tables") > 0) {
      throw CLI::ValidationError("counts are in no file of --tables");
    }
    if ((counts > 0) == (command->count("--table") > 0)) {
      throw CLI::ValidationError(counts > 0 ? "counts are of no --table"
                                            : "--table is required with a key");
    }
    command_ = [this] { runGet(); };
  });
}

void EndpointCommandLine::runGet() {
  if (keys_.front() == "counts") {
    getCounts(options(), columnsOf(&countsTable()));
    return;
  }
  const Tables tables = tablesInForce(tablesFile_);
  const std::uint32_t table = tableNumber(tables, table_);
  getRows(options(), table, keysOf(keys_), columnsOf(tables.find(table)));
}

void EndpointCommandLine::addWalk() {
  CLI::App* const command = addCommand("walk", "Print all rows of a table");
  addTable(command, "");
  command->get_option("--table")->required();
  command->add_option("--after", after_, "Begin behind the row with this key")->check(checkKey);
  addFormats(command);
  addColumns(command);
  setFooter(command, kWalkText);
  command->callback([this] { command_ = [this] { runWalk(); }; });
}

void EndpointCommandLine::runWalk() {
  const Tables tables = tablesInForce(tablesFile_);
  const std::uint32_t table = tableNumber(tables, table_);
  const auto after = after_.empty() ? std::nullopt : numberOf(after_, kMaxKey);
  walk(options(), table, after, columnsOf(tables.find(table)));
}

void EndpointCommandLine::addSend() {
  CLI::App* const command = addCommand("send", "Send a message and print the reply");
  auto* const file =
      command->add_option("FILE", file_, "The message in JSON; \"-\": standard input");
  command->add_option("--command", commands_, "COMMAND of a record")
      ->allow_extra_args(false)
      ->excludes(file);
  command
      ->add_option("--cell", cells_,
                   "TAG:TYPE:VALUE or COLUMN:VALUE of a cell of the record before it")
      ->allow_extra_args(false)
      ->excludes(file);
  addFormats(command);
  setFooter(command, kSendText);
  command->callback([this, command] {
    if (file_.empty() && commands_.empty()) {
      throw CLI::ValidationError("FILE or --command is required");
    }
    command_ = [this, command] { runSend(*command); };
  });
}

void EndpointCommandLine::runSend(const CLI::App& send) {
  const Tables tables = tablesInForce(tablesFile_);
  if (file_.empty()) {
    sendParts(options(), tables, partsInOrder(send, commands_, cells_));
  } else {
    sendFile(options(), tables, file_);
  }
}

void EndpointCommandLine::addTables() {
  CLI::App* const command = app_.add_subcommand("tables", "Print the tables that have names");
  addTablesFile(command);
  command->footer(std::string(kTablesText) + "\n" + kEnvironment + "\n" + ending_);
  command->callback([this] { command_ = [this] { print(linesOf(tablesInForce(tablesFile_))); }; });
}

EndpointOptions EndpointCommandLine::options() const {
  // That of the option has been checked.
  if (!EndpointLink::isEndpoint(target_.endpoint)) {
    throw Failure(kUsage, std::string(kEndpointVariable) + ": \"" + shortened(target_.endpoint) +
                              "\" is " + checkEndpoint(target_.endpoint));
  }
  const Format otherwise = dump_ ? Format::kDump : Format::kRows;
  return {target_, identity_, json_ ? Format::kJson : otherwise};
}

Columns EndpointCommandLine::columnsOf(const Table* table) const {
  return columns_.empty() ? Columns(table) : Columns(table, columns_);
}

}  // namespace qov::ctl
