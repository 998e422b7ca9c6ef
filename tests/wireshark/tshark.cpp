#include "tests/wireshark/tshark.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <functional>

#include "modules/common/json_object.h"
#include "tests/support/files.h"

namespace qov::test {
namespace {

const std::string kExpertPrefix = "qov.v3.expert.";

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

// Of this process's environment, what a program of ours needs if it was built with a sanitizer.
std::vector<std::string> sanitizerOptions() {
  std::vector<std::string> options;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (std::strstr(*entry, "SAN_OPTIONS=") != nullptr) {
      options.emplace_back(*entry);
    }
  }
  return options;
}

int exitStatus(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) == -1) {
    if (errno != EINTR) {
      return -1;
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool parse(const std::string& text, Json::Value& value) try {
  // As deep as the library reads it.
  value = common::parseJson(text, 1000);
  return true;
} catch (const common::BadJson&) {
  return false;
}

// Calls `visit` with every expert item's name and the object that it is in.
void eachExpert(const Json::Value& tree,
                const std::function<void(const std::string&, const Json::Value&)>& visit) {
  if (tree.isArray()) {
    for (const Json::Value& element : tree) {
      eachExpert(element, visit);
    }
  } else if (tree.isObject()) {
    for (const std::string& name : tree.getMemberNames()) {
      if (name.compare(0, kExpertPrefix.size(), kExpertPrefix) == 0) {
        visit(name.substr(kExpertPrefix.size()), tree);
      }
      eachExpert(tree[name], visit);
    }
  }
}

std::uint16_t portOf(const Json::Value& tcp, const char* name) {
  return static_cast<std::uint16_t>(std::stoul(tcp[name].asString()));
}

Json::Value number(const Json::Value& text) {
  return common::jsonNumber(std::strtoull(text.asCString(), nullptr, 0));
}

std::string withoutColons(std::string text) {
  std::string hex;
  for (const char c : text) {
    if (c != ':') {
      hex += c;
    }
  }
  return hex;
}

std::string hexOf(const std::string& bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string hex;
  for (const char each : bytes) {
    const auto byte = static_cast<unsigned char>(each);
    hex += digits[byte >> 4];
    hex += digits[byte & 15];
  }
  return hex;
}

const char* const kTypeNames[] = {"Invalid", "Octet", "String", "Uint", "Int",
                                  "Bool",    "Enum",  "Array",  "Json", "Time"};

Json::Value octets(const std::string& hex) {
  Json::Value value;
  value["octets"] = hex;
  return value;
}

Json::Value textValue(const Json::Value& cell, const std::string& type) {
  if (cell.isMember("qov.v3.cell.octets")) {
    return octets(withoutColons(cell["qov.v3.cell.octets"].asString()));
  }
  if (type == "String") {
    return cell["qov.v3.cell.string"];
  }
  const std::string text =
      cell[type == "Array" ? "qov.v3.cell.array" : "qov.v3.cell.json"].asString();
  Json::Value value;
  // An object that looks like octets itself is told as what it is made of, and so is what would be
  // longer when it is written again.
  const bool shown = parse(text, value) && value.isArray() == (type == "Array") &&
                     !(value.isObject() && value.size() == 1 && value.isMember("octets")) &&
                     common::shortestJson(value).size() <= text.size();
  return shown ? value : octets(hexOf(text) + "00");
}

Json::Value valueOf(const Json::Value& cell, const std::string& type) {
  if (type == "Invalid" || type == "Octet") {
    const char* const name = type == "Octet" ? "qov.v3.cell.octets" : "qov.v3.cell.invalid";
    return withoutColons(cell[name].asString());
  }
  if (type == "Int") {
    return Json::Int64(std::strtoll(cell["qov.v3.cell.int"].asCString(), nullptr, 10));
  }
  if (type == "Uint" || type == "Bool" || type == "Enum" || type == "Time") {
    std::string name = type;
    name[0] = static_cast<char>(name[0] - 'A' + 'a');
    return number(cell["qov.v3.cell." + name]);
  }
  return textValue(cell, type);
}

bool isReadAsEmpty(const Json::Value& cell) {
  bool empty = false;
  eachExpert(cell, [&](const std::string& name, const Json::Value&) { empty |= name == "empty"; });
  return empty;
}

Json::Value cellMeaning(const Json::Value& cell) {
  Json::Value meaning;
  const std::string type = kTypeNames[number(cell["qov.v3.cell.type"]).asUInt()];
  meaning["tag"] = number(cell["qov.v3.cell.tag"]);
  meaning["type"] = type;
  meaning["length"] = number(cell["qov.v3.cell.length"]);
  if (isReadAsEmpty(cell)) {
    meaning["tag"] = 4094;
    meaning["type"] = "Invalid";
    meaning["value"] = "";
  } else {
    meaning["value"] = valueOf(cell, type);
  }
  return meaning;
}

Json::Value recordMeaning(const Json::Value& record) {
  Json::Value meaning;
  meaning["cmd"] = number(record["qov.v3.record.cmd"]);
  meaning["length"] = number(record["qov.v3.record.length"]);
  meaning["cells"] = Json::Value(Json::arrayValue);
  for (const Json::Value& cell : all(record, "qov.v3.cell")) {
    meaning["cells"].append(cellMeaning(cell));
  }
  return meaning;
}

}  // namespace

Finished run(const std::vector<std::string>& arguments) {
  const TemporaryDirectory directory;
  const std::string out = directory.file("out");
  const std::string err = directory.file("err");
  const char* const path = std::getenv("PATH");
  std::vector<std::string> environment = sanitizerOptions();
  environment.insert(
      environment.end(),
      {std::string("PATH=") + (path != nullptr ? path : "/usr/bin:/bin"),
       "HOME=" + directory.path().string(), "WIRESHARK_CONFIG_DIR=" + directory.path().string(),
       "LANG=C.UTF-8", "TZ=UTC"});
  std::vector<std::string> words = arguments;

  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT, 0600);
  ::posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT, 0600);
  pid_t child = -1;
  const int failed = ::posix_spawnp(&child, words[0].c_str(), &actions, nullptr,
                                    pointersTo(words).data(), pointersTo(environment).data());
  ::posix_spawn_file_actions_destroy(&actions);
  Finished finished;
  if (failed != 0) {
    finished.err = "cannot run " + words[0] + ": " + std::strerror(failed);
    return finished;
  }
  finished.status = exitStatus(child);
  finished.out = readFile(out);
  finished.err = readFile(err);
  return finished;
}

std::vector<std::string> Shown::experts() const {
  std::vector<std::string> names;
  eachExpert(tree, [&](const std::string& name, const Json::Value&) { names.push_back(name); });
  return names;
}

std::string Shown::expertText(const std::string& wanted) const {
  std::string text;
  eachExpert(tree, [&](const std::string& name, const Json::Value& item) {
    if (name == wanted && text.empty()) {
      text = all(item, "_ws.expert.message").front().asString();
    }
  });
  return text;
}

bool tellsOfScriptError(const Finished& finished) {
  for (const char* const word : {"Lua Error", "_ws.lua.error", "Lua: Error", "tshark: Lua"}) {
    if (finished.out.find(word) != std::string::npos ||
        finished.err.find(word) != std::string::npos) {
      return true;
    }
  }
  return false;
}

Finished Tshark::start(const std::string& capture,
                       const std::vector<std::string>& arguments) const {
  // No names are looked up, unless the options say so.
  std::vector<std::string> words = {"tshark", "-n", "-X", "lua_script:" + script_, "-r", capture};
  words.insert(words.end(), options_.begin(), options_.end());
  words.insert(words.end(), arguments.begin(), arguments.end());
  return run(words);
}

Finished Tshark::checked(const std::string& capture,
                         const std::vector<std::string>& arguments) const {
  Finished finished = start(capture, arguments);
  EXPECT_EQ(finished.status, 0) << finished.err;
  EXPECT_FALSE(tellsOfScriptError(finished)) << finished.err << finished.out.substr(0, 4000);
  return finished;
}

std::vector<Shown> Tshark::messages(const std::string& capture) const {
  const Finished finished =
      checked(capture, {"-T", "json", "--no-duplicate-keys", "-J", "frame tcp qov.v3 _ws.lua.error",
                        "-Y", "qov.v3 || _ws.lua.error"});
  Json::Value packets;
  EXPECT_TRUE(parse(finished.out, packets)) << finished.out.substr(0, 4000);
  std::vector<Shown> messages;
  for (const Json::Value& packet : packets) {
    const Json::Value& layers = packet["_source"]["layers"];
    Shown shown;
    shown.frame = number(layers["frame"]["frame.number"]).asUInt();
    const std::uint16_t from = portOf(layers["tcp"], "tcp.srcport");
    const std::uint16_t to = portOf(layers["tcp"], "tcp.dstport");
    // Clients of captures have the higher port.
    shown.fromClient = from > to;
    shown.clientPort = shown.fromClient ? from : to;
    std::vector<Json::Value> trees = all(layers, "qov.v3");
    for (Json::Value& tree : trees) {
      messages.push_back(shown);
      messages.back().tree.swap(tree);
    }
  }
  return messages;
}

std::vector<std::string> Tshark::fields(const std::string& capture, const std::string& filter,
                                        const std::vector<std::string>& names) const {
  std::vector<std::string> arguments = {"-Y", filter, "-T", "fields"};
  for (const std::string& name : names) {
    arguments.insert(arguments.end(), {"-e", name});
  }
  std::istringstream out(checked(capture, arguments).out);
  std::vector<std::string> lines;
  for (std::string line; std::getline(out, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::vector<Json::Value> all(const Json::Value& tree, const std::string& name) {
  if (!tree.isMember(name)) {
    return {};
  }
  const Json::Value& member = tree[name];
  if (!member.isArray()) {
    return {member};
  }
  return {member.begin(), member.end()};
}

Json::Value meaningOf(const Json::Value& tree) {
  Json::Value meaning;
  for (const char* const field :
       {"magic", "version", "ret", "ssk", "nid", "reserved", "bid", "ser", "len"}) {
    meaning["head"][field] = number(tree[std::string("qov.v3.") + field]);
  }
  meaning["records"] = Json::Value(Json::arrayValue);
  for (const Json::Value& record : all(tree, "qov.v3.record")) {
    meaning["records"].append(recordMeaning(record));
  }
  return meaning;
}

}  // namespace qov::test
