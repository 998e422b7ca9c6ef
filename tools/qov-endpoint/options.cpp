#include "tools/qov-endpoint/options.h"

#include <arpa/inet.h>

#include <CLI/CLI.hpp>

#include <iostream>

#include "tools/qov-endpoint/standard_error.h"

namespace qov::endpoint {
namespace {

constexpr const char* kDescription =
    "The management endpoint for development and tests: answers V3 requests with tables of this\n"
    "machine or of a file, stores records, and answers wrongly where it is told to.\n";

constexpr const char* kFooter =
    "The first line on standard output is \"listening on ADDRESS:PORT\".\n"
    "\n"
    "Tables of this machine: 1 network interfaces, 2 mounts, 3 processes. Tables from 4096 on "
    "take\n"
    "what requests store.\n"
    "\n"
    "A fault is an action, and behind a colon key=value pairs separated by commas. Keys of every\n"
    "action: connection and request (which ones, counted from 1; all when left out), count (how\n"
    "often; for ever when left out). The first fault that meets a request is the one that counts,\n"
    "those of the scenario file before those of the options. The actions and their keys:\n"
    "  close        after=BYTES of the answer (0)      two-records\n"
    "  delay        seconds=S before the answer        no-record\n"
    "  drip         single bytes, seconds=S apart (0)  no-status    no status cell\n"
    "  serial       add=N to the serial number (1)     text-status  a text in the status cell\n"
    "  ret          value=RESULT, records as they are  status       value=N in the status cell "
    "(7)\n"
    "  length       value=N or add=N, fill=true        no-end       walks start over at their end\n"
    "  magic        value=N instead of the magic       silent       no answer\n"
    "  refuse       closes the connection; seconds=S nobody can connect\n"
    "For example: --fault close:after=10,request=2,count=1 --fault delay:seconds=0.5\n"
    "\n"
    "Exit status: 0 stopped by SIGTERM or SIGINT once it listens; 1 the address cannot be had, or "
    "the\n"
    "counts or this help cannot be written; 2 wrong usage, tables or scenario.\n"
    "\n"
    "docs/endpoint.md says it all at length.\n";

/// An IPv6 address may stand in brackets, as it does where a port is behind it.
std::string withoutBrackets(const std::string& text) {
  const bool brackets = text.size() > 2 && text.front() == '[' && text.back() == ']';
  return brackets ? text.substr(1, text.size() - 2) : text;
}

bool isAddress(int family, const std::string& text) {
  in6_addr parsed;
  return ::inet_pton(family, text.c_str(), &parsed) == 1;
}

std::string checkAddress(const std::string& text) {
  return isAddress(AF_INET, text) || isAddress(AF_INET6, withoutBrackets(text))
             ? ""
             : "not an IPv4 or IPv6 address: " + text;
}

/// An empty one is most likely a variable of a script that is not set.
std::string checkFile(const std::string& text) {
  return text.empty() ? "no file is named" : "";
}

/// An empty one would count as 0, which as a port means any.
std::string checkNumber(const std::string& text) {
  unsigned short number = 0;
  return !text.empty() && CLI::detail::lexical_cast(text, number)
             ? ""
             : "not a number from 0 to 65535: " + text;
}

/// Prints the help and gives the exit status.
int printHelp(const CLI::App& app) {
  std::cout << app.help() << std::flush;
  if (!std::cout) {
    complain("the help cannot be written");
    return kFailed;
  }
  return kStopped;
}

}  // namespace

std::optional<Options> readOptions(int argc, char** argv, int& exitStatus) {
  Options options;
  std::string address = "127.0.0.1";
  unsigned short port = 19001;
  unsigned short wait = 10;
  unsigned short grace = 5;
  CLI::App app(kDescription, "qov-endpoint");
  app.footer(kFooter);
  app.add_option("--address", address, "IPv4 or IPv6 address to listen on")
      ->capture_default_str()
      ->check(checkAddress);
  app.add_option("--port", port, "Port to listen on; 0 takes a free one")
      ->capture_default_str()
      ->check(checkNumber);
  app.add_option("--wait", wait, "Seconds to wait for a port that is in use")
      ->capture_default_str()
      ->check(checkNumber);
  app.add_option("--grace", grace, "Seconds that answers on their way have when it is to stop")
      ->capture_default_str()
      ->check(checkNumber);
  app.add_option("--tables", options.tables, "Tables of this JSON file instead of this machine's")
      ->check(checkFile);
  app.add_option("--counts", options.counts,
                 "File that always holds what has been counted; goes on from what is in it")
      ->check(checkFile);
  app.add_option("--scenario", options.scenario, "JSON file of faults")->check(checkFile);
  app.add_option("--fault", options.faults, "A fault; may be given several times")
      ->type_name("ACTION[:KEY=VALUE,...]")
      ->allow_extra_args(false);
  CLI::Option* quiet = app.add_flag("--quiet", "Nothing on standard error but why it ends");
  CLI::Option* verbose =
      app.add_flag("--verbose", "Every exchange on standard error")->excludes(quiet);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& end) {
    if (end.get_exit_code() == 0) {
      exitStatus = printHelp(app);
    } else {
      complain(std::string(end.what()) + " (--help says more)");
      exitStatus = kUsage;
    }
    return std::nullopt;
  }
  options.address.at.set(port, withoutBrackets(address).c_str());
  options.address.wait = std::chrono::seconds(wait);
  options.grace = std::chrono::seconds(grace);
  if (quiet->count() != 0) {
    options.level = Log::Level::kQuiet;
  } else if (verbose->count() != 0) {
    options.level = Log::Level::kExchanges;
  }
  return options;
}

}  // namespace qov::endpoint
