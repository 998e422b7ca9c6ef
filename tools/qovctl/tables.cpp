#include "tools/qovctl/tables.h"

#include <charconv>
#include <iterator>
#include <limits>

#include "tools/common/endpoint_protocol.h"

namespace qov::ctl {
namespace {

struct Named {
  std::uint32_t value;
  const char* name;
};

constexpr Named kTables[] = {{endpoint::kInterfaces, "interfaces"},
                             {endpoint::kMounts, "mounts"},
                             {endpoint::kProcesses, "processes"}};

constexpr Named kOperations[] = {{endpoint::kGetNext, "get-next"},
                                 {endpoint::kGet, "get"},
                                 {endpoint::kStore, "store"},
                                 {endpoint::kReadCounts, "counts"}};

constexpr Named kResults[] = {{endpoint::kUnknownOperation, "unknown operation"},
                              {endpoint::kUnknownTable, "unknown table"},
                              {endpoint::kNoSuchRow, "no such row"},
                              {endpoint::kBadRequest, "bad request"},
                              {endpoint::kReadOnly, "read-only table"},
                              {endpoint::kTableFull, "table full"}};

constexpr Named kInterfaceColumns[] = {
    {endpoint::kInterfaceName, "name"},         {endpoint::kInterfaceUp, "up"},
    {endpoint::kInterfaceHardware, "hardware"}, {endpoint::kInterfaceMtu, "mtu"},
    {endpoint::kReceivedBytes, "received"},     {endpoint::kSentBytes, "sent"}};

constexpr Named kMountColumns[] = {{endpoint::kMountPoint, "point"},
                                   {endpoint::kMountDevice, "device"},
                                   {endpoint::kMountType, "type"},
                                   {endpoint::kMountFlags, "flags"}};

constexpr Named kProcessColumns[] = {{endpoint::kProcessName, "name"},
                                     {endpoint::kProcessState, "state"},
                                     {endpoint::kThreads, "threads"},
                                     {endpoint::kResidentKb, "resident-kb"},
                                     {endpoint::kStarted, "started"}};

constexpr Named kCountNames[] = {{endpoint::kConnections, "connections"},
                                 {endpoint::kRequests, "requests"},
                                 {endpoint::kReplies, "replies"},
                                 {endpoint::kRows, "rows"},
                                 {endpoint::kEnds, "ends"},
                                 {endpoint::kStored, "stored"},
                                 {endpoint::kRefusals, "refusals"}};

template <std::size_t size>
const char* nameIn(const Named (&names)[size], std::uint32_t value) {
  for (const Named& named : names) {
    if (named.value == value) {
      return named.name;
    }
  }
  return nullptr;
}

template <std::size_t size>
std::optional<std::uint32_t> valueIn(const Named (&names)[size], std::string_view name) {
  for (const Named& named : names) {
    if (named.name == name) {
      return named.value;
    }
  }
  return std::nullopt;
}

/// With the key's.
template <std::size_t size>
std::vector<unsigned short> tagsIn(const Named (&columns)[size]) {
  std::vector<unsigned short> tags{endpoint::kCursorTag};
  for (const Named& column : columns) {
    tags.push_back(static_cast<unsigned short>(column.value));
  }
  return tags;
}

std::string tagText(const char* name, unsigned short tag) {
  return name != nullptr ? name : "tag " + std::to_string(tag);
}

}  // namespace

std::optional<std::uint64_t> numberOf(std::string_view text, std::uint64_t max) {
  const bool hexadecimal = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
  text.remove_prefix(hexadecimal ? 2 : 0);
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, hexadecimal ? 16 : 10);
  if (error != std::errc() || stop != end || number > max) {
    return std::nullopt;
  }
  return number;
}

std::optional<std::uint32_t> tableOfText(std::string_view text) {
  if (const auto table = valueIn(kTables, text)) {
    return table;
  }
  const auto number = numberOf(text, std::numeric_limits<std::uint32_t>::max());
  return number ? std::optional(static_cast<std::uint32_t>(*number)) : std::nullopt;
}

std::optional<std::uint64_t> commandOfText(std::string_view text) {
  const std::size_t slash = text.find('/');
  if (slash == std::string_view::npos) {
    return numberOf(text, std::numeric_limits<std::uint64_t>::max());
  }
  const auto operation = valueIn(kOperations, text.substr(0, slash));
  const auto table = tableOfText(text.substr(slash + 1));
  if (!operation || !table) {
    return std::nullopt;
  }
  return endpoint::command(static_cast<endpoint::Operation>(*operation), *table);
}

std::string columnName(std::uint32_t table, unsigned short tag) {
  switch (table) {
    case endpoint::kInterfaces:
      return tagText(nameIn(kInterfaceColumns, tag), tag);
    case endpoint::kMounts:
      return tagText(nameIn(kMountColumns, tag), tag);
    case endpoint::kProcesses:
      return tagText(nameIn(kProcessColumns, tag), tag);
    default:
      return tagText(nullptr, tag);
  }
}

std::vector<unsigned short> namedColumns(std::uint32_t table) {
  switch (table) {
    case endpoint::kInterfaces:
      return tagsIn(kInterfaceColumns);
    case endpoint::kMounts:
      return tagsIn(kMountColumns);
    case endpoint::kProcesses:
      return tagsIn(kProcessColumns);
    default:
      return {};
  }
}

std::string countName(unsigned short tag) {
  return tagText(nameIn(kCountNames, tag), tag);
}

std::string resultText(std::uint32_t result) {
  const char* const name = nameIn(kResults, result);
  return "RET " + std::to_string(result) + (name != nullptr ? " (" + std::string(name) + ")" : "");
}

}  // namespace qov::ctl
