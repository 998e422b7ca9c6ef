#include "tools/qovctl/endpoint_commands.h"

#include "tools/common/endpoint_protocol.h"
#include "tools/qovctl/rows_text.h"
#include "tools/qovctl/streams.h"

namespace qov::ctl {
namespace {

/// Says at the end, on every way out, that a request may have been served more than once.
class Sending {
 public:
  explicit Sending(const Target& target) : link_(target) {}
  ~Sending() {
    const unsigned int times = link_.mostSent();
    if (times == 2) {
      complain("note: a request was sent twice, since the first exchange failed");
    } else if (times > 2) {
      complain("note: a request was sent " + std::to_string(times) +
               " times, since the exchanges before failed");
    }
  }
  Sending(const Sending&) = delete;
  Sending& operator=(const Sending&) = delete;

  EndpointLink& link() { return link_; }

 private:
  EndpointLink link_;
};

/// The requests that are made of the command line; what a file says stays.
CT7QPackageV3 requestOf(const EndpointOptions& options, endpoint::Operation operation,
                        std::uint32_t table, std::optional<std::uint64_t> key = std::nullopt) {
  CT7QPackageV3 request;
  options.identity.putInto(request.head());
  CTLVRecordV3& record = request.addRecord(endpoint::command(operation, table));
  if (key) {
    record.addUnsigned(endpoint::kCursorTag, *key);
  }
  return request;
}

/// Prints the row, and says which of the columns it lacks.
void getRow(EndpointLink& link, CT7QPackageV3 request, ReplyOutput& output, const Columns& columns,
            const std::string& name) {
  link.exchangeForRecord(request);
  output.add(request);
  if (const std::string missing = columns.missingIn(request[0]); !missing.empty()) {
    complain("note: " + name + " has no " + missing);
  }
}

void send(const EndpointOptions& options, const Tables& tables, CT7QPackageV3& request) {
  options.identity.putInto(request.head());
  Sending sending(options.target);
  ReplyOutput output(options.format,
                     [&](const CT7QPackageV3& reply) { return replyLines(reply, tables); });
  output.print([&] {
    try {
      sending.link().exchange(request);
    } catch (const Failure& failure) {
      if (failure.code() == kEndpointError &&
          request.decodeFault().kind == DecodeFault::Kind::kNone) {
        output.add(request);
      }
      throw;
    }
    output.add(request);
  });
}

}  // namespace

void Identity::putInto(TLVMsgHeadV3& head) const {
  head.ssk_ = ssk.value_or(head.ssk_);
  head.nid_ = nid.value_or(head.nid_);
  head.bid_ = bid.value_or(head.bid_);
}

void getRows(const EndpointOptions& options, std::uint32_t table,
             const std::vector<std::uint64_t>& keys, const Columns& columns) {
  Sending sending(options.target);
  bool first = true;
  ReplyOutput output(options.format, [&](const CT7QPackageV3& reply) {
    return (std::exchange(first, false) ? "" : "\n") + rowLines(reply[0], columns);
  });
  std::size_t refused = 0;
  output.print([&] {
    for (const std::uint64_t key : keys) {
      try {
        getRow(sending.link(), requestOf(options, endpoint::kGet, table, key), output, columns,
               "key " + std::to_string(key));
      } catch (const Failure& failure) {
        if (keys.size() == 1 || failure.code() != kEndpointError) {
          throw;
        }
        complain("key " + std::to_string(key) + ": " + failure.what());
        ++refused;
      }
    }
  });
  if (refused > 0) {
    throw Failure(kEndpointError, std::to_string(refused) + " of " + std::to_string(keys.size()) +
                                      " rows were refused");
  }
}

void getCounts(const EndpointOptions& options, const Columns& columns) {
  Sending sending(options.target);
  ReplyOutput output(options.format,
                     [&](const CT7QPackageV3& reply) { return rowLines(reply[0], columns); });
  output.print([&] {
    getRow(sending.link(), requestOf(options, endpoint::kReadCounts, 0), output, columns, "counts");
  });
}

void walk(const EndpointOptions& options, std::uint32_t table, std::optional<std::uint64_t> after,
          const Columns& columns) {
  CT7QPackageV3 request = requestOf(options, endpoint::kGetNext, table, after);
  Sending sending(options.target);
  RowTable rows(columns);
  ReplyOutput output(options.format,
                     [&](const CT7QPackageV3& reply) { return rows.lines(reply[0]); });
  output.print([&] {
    sending.link().walk(request, [&](const CT7QPackageV3& reply, bool isRow) {
      // Of a reply that is no row only a dump shows anything.
      if (isRow || options.format == Format::kDump) {
        output.add(reply);
      }
    });
  });
}

void sendFile(const EndpointOptions& options, const Tables& tables, const std::string& file) {
  CT7QPackageV3 request;
  requestFromJson(readInput(file), request);
  send(options, tables, request);
}

void sendParts(const EndpointOptions& options, const Tables& tables,
               const std::vector<RequestPart>& parts) {
  CT7QPackageV3 request;
  requestFromParts(parts, tables, request);
  send(options, tables, request);
}

}  // namespace qov::ctl
