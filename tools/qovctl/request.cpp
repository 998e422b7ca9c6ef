#include "tools/qovctl/request.h"

#include <qovpub/qov_exception.h>

#include "modules/common/cell_json.h"
#include "modules/common/json_object.h"
#include "modules/common/message_json.h"
#include "tools/common/endpoint_protocol.h"
#include "tools/qovctl/cell_text.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/message.h"

namespace qov::ctl {
namespace {

using common::BadJson;

template <class Package>
void addPart(const RequestPart& part, const Tables& tables, Package& request) {
  if (!part.isCell) {
    const auto command = tables.commandOfText(part.text);
    if (!command) {
      throw BadJson("", "no command");
    }
    request.addRecord(*command);
    return;
  }
  if (request.count() == 0) {
    throw BadJson("", "a cell without a command before it");
  }
  CTLVRecordV3& record = request[request.count() - 1];
  record.add(cellOfText(part.text, tables.find(endpoint::tableOf(record.cmd()))));
}

template <class Package>
void addParts(const std::vector<RequestPart>& parts, const Tables& tables, Package& request) {
  for (const RequestPart& part : parts) {
    const std::string place =
        (part.isCell ? "--cell \"" : "--command \"") + shortened(part.text) + "\": ";
    try {
      addPart(part, tables, request);
    } catch (const BadJson& e) {
      throw Failure(kUsage, place + e.what());
    } catch (const CQOV_Exception& e) {
      throw Failure(kUsage, place + common::reasonOf(e));
    }
  }
}

}  // namespace

void requestFromJson(const std::string& text, CT7QPackageV3& request) {
  const Json::Value json = common::parseJson(text);
  if (!json.isObject() || !json.isMember("messages")) {
    common::fromJson(json, "", request);
    return;
  }
  const common::JsonObject document(json, "", {"kind", "messages"});
  if (document.text("kind") != nameOf(Kind::kV3)) {
    document.refuse("kind", "not \"v3\": an endpoint speaks nothing else");
  }
  const Json::Value& messages = document.array("messages");
  if (messages.size() != 1) {
    document.refuse("messages", std::to_string(messages.size()) + " messages; one can be sent");
  }
  common::fromJson(messages[0], "messages[0]", request);
}

std::vector<RequestPart> partsInOrder(const CLI::App& line,
                                      const std::vector<std::string>& commands,
                                      const std::vector<std::string>& cells) {
  std::vector<RequestPart> parts;
  auto command = commands.begin();
  auto cell = cells.begin();
  for (const CLI::Option* option : line.parse_order()) {
    if (option->check_name("--command")) {
      parts.push_back({false, *command++});
    } else if (option->check_name("--cell")) {
      parts.push_back({true, *cell++});
    }
  }
  return parts;
}

void requestFromParts(const std::vector<RequestPart>& parts, const Tables& tables,
                      CT7QPackageV3& request) {
  addParts(parts, tables, request);
}

void requestFromParts(const std::vector<RequestPart>& parts, const Tables& tables,
                      CQOV_MsgPackage& request) {
  addParts(parts, tables, request);
}

}  // namespace qov::ctl
