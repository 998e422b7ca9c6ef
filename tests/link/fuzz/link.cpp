// The first byte of the input says how the link is used, the rest is what its endpoint does.
#include <qovpub/qov_link_stats.h>
#include <qovpub/qov_long_socket.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <utility>

#include "tests/link/fuzz/played_endpoint.h"
#include "tests/support/fuzz.h"

using namespace qov;
using test::LinkEvent;
using test::PlayedEndpoint;
using test::require;
using Kind = LinkEvent::Kind;

namespace {

/// One for all runs: most of the time would go into the memory of new ones.
class FuzzedLink : public CQOVLongSocket {
 public:
  FuzzedLink() : CQOVLongSocket(ACE_INET_Addr(9, "127.0.0.1"), Limits()) {}
  virtual ~FuzzedLink() = default;

  /// Whether it receives in memory of its own, and waits in poll().
  void receiveElsewhere(bool elsewhere) { elsewhere_ = elsewhere; }

  unsigned int receiveMsg(CT7QPackageV3* package) override {
    if (!elsewhere_) {
      return CQOVLongSocket::receiveMsg(package);
    }
    static const std::unique_ptr<unsigned char[]> memory(new unsigned char[kMaxMessage]);
    const ACE_Time_Value timeout(20);
    unsigned int length = 0;
    const unsigned int result = recvData(reinterpret_cast<char*>(memory.get()), length, &timeout);
    return result == 0 ? convert(memory.get(), length, package) : result;
  }

 private:
  bool elsewhere_ = false;
};

std::string bytesOf(const CT7QPackageV3& package) {
  CT7QPackageV3 copy(package);
  unsigned char* bytes = nullptr;
  const unsigned int size = copy.encode(bytes);
  const std::unique_ptr<unsigned char[]> own(bytes);
  require(bytes != nullptr, "what was decoded can be encoded");
  return {bytes, bytes + size};
}

std::uint16_t serialIn(const std::string& message) {
  std::uint16_t serial;
  std::memcpy(&serial, &message[offsetof(TLVMsgHeadV3, ser_)], sizeof serial);
  return serial;
}

/// What a link has to do, told from what it did to its endpoint and what came of that.
class PlainLink {
 public:
  /// Connects.
  explicit PlainLink(std::deque<LinkEvent>& events) : events_(events) { connect(); }

  bool isConnected() const { return isConnected_; }

  /// The result of an exchange, with what `package` holds behind it.
  unsigned int exchange(CT7QPackageV3& package) {
    const std::uint16_t before = package.head().ser_;
    std::string request;
    unsigned int result = CQOVLongSocket::kSocketFailed;
    for (int attempts = 0; attempts < 2 && result == CQOVLongSocket::kSocketFailed; ++attempts) {
      if (!isConnected_) {
        connect();
        continue;
      }
      const LinkEvent event = take();
      if (event.kind == Kind::kNotSent) {
        connect();
        continue;
      }
      require(event.kind == Kind::kSent || event.kind == Kind::kCut, "a request is sent");
      isCut_ = isCut_ || event.kind == Kind::kCut;
      if (request.empty()) {
        package.head().ser_ = serialIn(event.request);
        require(package.head().ser_ != before, "a request has a serial number of its own");
        request = bytesOf(package);
      }
      require(event.request == request, "the request is what was asked, and so is its repetition");
      package.clear();
      if (event.answer) {
        result = read(*event.answer, package);
      } else {
        connect();
      }
    }
    if (isCut_) {
      connect();
    }
    return result;
  }

  /// The same of a walk. `throws`: whether it ends by an exception.
  unsigned int walk(CT7QPackageV3& package, bool& throws) {
    CT7QPackageV3 step(package);
    package.clear();
    while (true) {
      if (const unsigned int result = exchange(step); result != 0) {
        return result;
      }
      if (step.count() != 1) {
        return CQOVLongSocket::kBadReply;
      }
      const CTLVRecordV3& row = std::as_const(step)[0];
      const CTLVCell* const cell = statusIn(row);
      throws = cell != nullptr && !isNumber(*cell);
      if (throws) {
        return 0;
      }
      const std::uint64_t status = cell == nullptr ? 0 : cell->number();
      CTLVRecordV3& kept = package.addRecord(row.cmd());
      if (status != 1) {
        kept = CTLVRecordV3(row);
      }
      if (status != 0) {
        return 0;
      }
    }
  }

 private:
  LinkEvent take() {
    require(!events_.empty(), "the link does all that it has to");
    LinkEvent first = std::move(events_.front());
    events_.pop_front();
    return first;
  }

  void connect() {
    const Kind kind = take().kind;
    require(kind == Kind::kConnected || kind == Kind::kRefused, "the link connects anew");
    isConnected_ = kind == Kind::kConnected;
    isCut_ = false;
  }

  static unsigned int read(const std::string& answer, CT7QPackageV3& package) {
    if (serialIn(answer) != package.head().ser_) {
      return CQOVLongSocket::kBadReply;
    }
    const bool isGood =
        package.decode(reinterpret_cast<const unsigned char*>(answer.data()),
                       static_cast<unsigned int>(answer.size())) != CT7QPackageV3::kFailed;
    std::uint32_t ret;
    std::memcpy(&ret, &answer[offsetof(TLVMsgHeadV3, ret_)], sizeof ret);
    return ret != 0 || isGood ? ret : CQOVLongSocket::kBadReply;
  }

  static const CTLVCell* statusIn(const CTLVRecordV3& row) {
    constexpr unsigned int kStatusTag = 4095;
    for (const CTLVCell& cell : row) {
      if (cell.tag() == kStatusTag) {
        return &cell;
      }
    }
    return nullptr;
  }

  static bool isNumber(const CTLVCell& cell) {
    try {
      cell.checkNumerical();
      return true;
    } catch (const CQOV_Exception&) {
      return false;
    }
  }

  std::deque<LinkEvent>& events_;
  bool isConnected_ = false;
  bool isCut_ = false;
};

/// Asks in both ways, and compares.
void ask(FuzzedLink& link, PlainLink& plain, bool walks) {
  CT7QPackageV3 package;
  package.addRecord(7).addUnsigned(1, 42);
  CT7QPackageV3 expected(package);
  unsigned int result = 0;
  bool hasThrown = false;
  bool throws = false;
  try {
    result = walks ? link.sendGetNextMsgV3(&package) : link.sendMsg(&package);
  } catch (const CQOV_Exception&) {
    hasThrown = true;
  }
  const unsigned int expectedResult =
      walks ? plain.walk(expected, throws) : plain.exchange(expected);
  require(hasThrown == throws,
          "a walk throws at a status that is no number, and nothing else does");
  require(result == expectedResult, "the result is what has come");
  constexpr std::uint16_t kNone = 0xFFFF;
  if (!walks && expected.head().ser_ == kNone) {
    expected.head().ser_ = package.head().ser_;  // nothing could be sent
  }
  require(bytesOf(package) == bytesOf(expected), "the package holds what has come");
}

/// The bits of `walks` say which of its questions are walks.
void play(FuzzedLink& link, unsigned int walks, std::string script) {
  constexpr unsigned int kMost = 7;
  PlayedEndpoint endpoint(std::move(script));
  link.setupConnection();
  PlainLink plain(endpoint.events());
  unsigned int asked = 0;
  do {
    ask(link, plain, (walks >> asked & 1U) != 0);
    require(endpoint.events().empty(), "the link does no more than it has to");
    require(getLinkStats().front().connected_ == plain.isConnected(),
            "the link tells whether it is connected");
  } while (++asked < kMost && !endpoint.isOver());
}

int lowestFreeDescriptor() {
  const int descriptor = ::dup(0);
  ::close(descriptor);
  return descriptor;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  test::silence();
  static FuzzedLink link;
  const int free = lowestFreeDescriptor();
  const unsigned int how = size == 0 ? 0U : *data;
  link.receiveElsewhere((how & 1U) != 0);
  play(link, how >> 1U, size == 0 ? "" : test::textOf(data + 1, size - 1));
  link.setupConnection();  // to nobody
  require(lowestFreeDescriptor() == free, "no descriptor is left");
  return 0;
}
