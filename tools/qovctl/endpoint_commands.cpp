#include "tools/qovctl/endpoint_commands.h"

#include "tools/common/endpoint_protocol.h"
#include "tools/common/message_json.h"
#include "tools/qovctl/json_document.h"
#include "tools/qovctl/rows_text.h"
#include "tools/qovctl/streams.h"
#include "tools/qovctl/tables.h"
#include "tools/qovctl/walk_output.h"

namespace qov::ctl {
namespace {

/// Says at the end, on every way out, that a request may have been served twice.
class Sending {
 public:
  explicit Sending(const Target& target) : link_(target) {}
  ~Sending() {
    if (link_.hasResent()) {
      complain("note: a request was sent twice, since the first exchange failed");
    }
  }
  Sending(const Sending&) = delete;
  Sending& operator=(const Sending&) = delete;

  EndpointLink& link() { return link_; }

 private:
  EndpointLink link_;
};

void printJson(const CT7QPackageV3& message) {
  JsonDocument document(Kind::kV3);
  document.add(tools::toJson(message));
  document.end();
}

/// Prints the message, or its rows as `text` gives them.
template <class RowsText>
void printMessage(const CT7QPackageV3& message, Format format, const RowsText& text) {
  switch (format) {
    case Format::kRows:
      print(text());
      break;
    case Format::kDump:
      print(dumpOf(message));
      break;
    case Format::kJson:
      printJson(message);
      break;
  }
}

Naming columnsOf(std::uint32_t table) {
  return [table](unsigned short tag) { return columnName(table, tag); };
}

/// Sends `request`, whose answer has one record, and prints it.
void getOne(const EndpointOptions& options, CT7QPackageV3& request, const Naming& naming) {
  Sending sending(options.target);
  sending.link().exchangeForRecord(request);
  printMessage(request, options.format, [&] { return rowLines(request[0], naming); });
}

void send(const EndpointOptions& options, CT7QPackageV3& request) {
  Sending sending(options.target);
  const auto printReply = [&] {
    options.format == Format::kJson ? printJson(request) : print(dumpOf(request));
  };
  try {
    sending.link().exchange(request);
  } catch (const Failure& failure) {
    if (failure.code() == kEndpointError &&
        request.decodeFault().kind == DecodeFault::Kind::kNone) {
      printReply();
    }
    throw;
  }
  printReply();
}

}  // namespace

void getRow(const EndpointOptions& options, std::uint32_t table, std::uint64_t key) {
  CT7QPackageV3 request;
  request.addRecord(endpoint::command(endpoint::kGet, table))
      .addUnsigned(endpoint::kCursorTag, key);
  getOne(options, request, columnsOf(table));
}

void getCounts(const EndpointOptions& options) {
  CT7QPackageV3 request;
  request.addRecord(endpoint::command(endpoint::kReadCounts, 0));
  getOne(options, request, countName);
}

void walk(const EndpointOptions& options, std::uint32_t table, std::optional<std::uint64_t> after) {
  CT7QPackageV3 request;
  CTLVRecordV3& record = request.addRecord(endpoint::command(endpoint::kGetNext, table));
  if (after) {
    record.addUnsigned(endpoint::kCursorTag, *after);
  }
  Sending sending(options.target);
  WalkOutput output(options.format, table);
  try {
    sending.link().walk(request,
                        [&](const CT7QPackageV3& reply, bool isRow) { output.add(reply, isRow); });
  } catch (...) {
    output.endEarly();
    throw;
  }
  output.end();
}

void sendFile(const EndpointOptions& options, const std::string& file) {
  CT7QPackageV3 request;
  requestFromJson(readInput(file), request);
  send(options, request);
}

void sendParts(const EndpointOptions& options, const std::vector<RequestPart>& parts) {
  CT7QPackageV3 request;
  requestFromParts(parts, request);
  send(options, request);
}

}  // namespace qov::ctl
