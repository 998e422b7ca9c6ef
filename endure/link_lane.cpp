#include "endure/link_lane.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "tools/common/endpoint_protocol.h"

namespace qov::endure {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// Short enough for thousands of silences, long enough for nearly all answers on a busy machine.
constexpr milliseconds kShort(150);
/// An answer that was sent within that comes before kShort is over.
constexpr milliseconds kInTime(100);
/// No exchange takes as long: silences are short, and all else ends an exchange at once.
constexpr milliseconds kTooLong(5000);
constexpr int kMostSlowInARow = 20;
constexpr unsigned short kFillTag = 2;
/// Rows of a walk.
constexpr std::uint64_t kMostWalked = 8;

template <class Limits>
Limits limitsOf(bool hasty) {
  Limits limits;
  if (hasty) {
    limits.connect = limits.reply = ACE_Time_Value(0, kShort.count() * 1000);
  }
  return limits;
}

void raise(Figure& figure, std::int64_t value) {
  for (std::int64_t now = figure; now < value && !figure.compare_exchange_weak(now, value);) {
  }
}

std::vector<std::size_t> kindsFor(bool hasty) {
  std::vector<std::size_t> kinds;
  for (std::size_t i = 0; i < kFaultKinds.size(); ++i) {
    if (kFaultKinds[i].needsTimeOut == hasty) {
      kinds.push_back(i);
    }
  }
  return kinds;
}

/// Whether `record` asks for the row of that key, or is that row.
bool isOf(const CTLVRecordV3& record, endpoint::Operation operation, std::uint64_t key) {
  const CTLVCell* const cursor = record.find(endpoint::kCursorTag);
  return record.cmd() == endpoint::command(operation, kTable) && cursor != nullptr &&
         cursor->getUnsigned() == key;
}

bool isRow(const CTLVRecordV3& record, endpoint::Operation operation, std::uint64_t key) {
  const CTLVCell* const text = isOf(record, operation, key) ? record.find(1) : nullptr;
  return text != nullptr && text->getString().size() == lengthOfRow(key);
}

bool isAnswer(const CT7QPackageV3& package, std::uint64_t key) {
  return package.count() == 1 && isRow(package[0], endpoint::kGet, key);
}

bool isRequest(const CT7QPackageV3& package, std::uint64_t key) {
  return package.count() == 1 && isOf(package[0], endpoint::kGet, key) &&
         package[0].find(kFillTag) != nullptr;
}

/// How many of the last `walked` rows `package` has, from the first one on and nothing between.
std::uint64_t rowsOf(const CT7QPackageV3& package, std::uint64_t walked) {
  std::uint64_t rows = 0;
  while (rows < std::min<std::uint64_t>(package.count(), walked) &&
         isRow(package[rows], endpoint::kGetNext, kRows - walked + rows + 1)) {
    ++rows;
  }
  return rows;
}

/// Whether the empty record that closes a walk stands behind `rows` rows.
bool endsAt(const CT7QPackageV3& package, std::uint64_t rows) {
  return package.count() == rows + 1 && package[rows].count() == 0;
}

}  // namespace

std::size_t lengthOfRow(std::uint64_t key) {
  return key % 10 == 0 ? key * 16 : key % 200;
}

void LinkFigures::updateRarest() {
  rarest = std::min_element(of_kind.begin(), of_kind.end())->load();
}

unsigned int LinkLane::Link::sendMsg_i(const unsigned char* data, unsigned int length) {
  const auto now = steady_clock::now();
  ++tries;
  const unsigned int result = CQOVLongSocket::sendMsg_i(data, length);
  if (result == 0) {
    ++sent;
    sentAt = now;
  }
  return result;
}

LinkLane::LinkLane(Campaign& campaign, LinkFigures& figures, std::uint16_t endpoint, bool hasty,
                   std::uint64_t seed)
    : campaign_(campaign),
      figures_(figures),
      random_(seed),
      hasty_(hasty),
      kinds_(kindsFor(hasty)),
      proxy_(endpoint),
      link_(proxy_.port(), limitsOf<Link::Limits>(hasty)) {}

std::chrono::seconds LinkLane::busyFor() const {
  return std::chrono::duration_cast<std::chrono::seconds>(steady_clock::now() - since_.load());
}

void LinkLane::run(const std::atomic<bool>& goesOn) {
  try {
    expectAnswer();
    while (goesOn) {
      std::shuffle(kinds_.begin(), kinds_.end(), random_);
      for (const std::size_t kind : kinds_) {
        if (!goesOn || campaign_.failed()) {
          return;
        }
        kind_ = kind;
        meet(kFaultKinds[kind]);
        ++figures_.faults;
        ++figures_.of_kind[kind];
      }
    }
  } catch (const std::exception& error) {
    campaign_.fail(std::string(now()) + ": " + error.what() + " " + proxy_.failure());
  }
}

void LinkLane::meet(const FaultKind& kind) {
  const bool isRepeated = kind.course == Course::kFails || kind.course == Course::kUnwelcome;
  // A walk bears no answers too many. Those of hasty lanes would be judged by the time of one step.
  const bool canWalk = kind.course <= Course::kBad && !hasty_;
  walked_ = canWalk && draw(0, 1) == 1 ? draw(1, kMostWalked) : 0;
  const FaultProxy::Plan plan{kind.fault, isRepeated ? static_cast<int>(draw(1, 2)) : 1,
                              draw(0, UINT64_MAX), [this] { link_.interrupt(); }, draw(0, walked_)};
  before_ = plan.after;
  proxy_.plan(plan);
  follow(kind, plan);
  expectAnswer();
}

void LinkLane::follow(const FaultKind& kind, const FaultProxy::Plan& plan) {
  switch (kind.course) {
    case Course::kAnswered:
      expectAnswer();
      break;
    case Course::kFails:
      if (plan.times == 1) {
        expectAnswer();
      } else {
        expectFailure();
      }
      break;
    case Course::kInterrupted:
      followInterruption();
      break;
    case Course::kBad:
      expectBadReply();
      break;
    case Course::kMayBeBad: {
      const Outcome outcome = exchange();
      require(outcome.result == 0 || outcome.result == CQOVLongSocket::kBadReply, outcome,
              "an answer or a bad reply");
      break;
    }
    case Course::kError: {
      const Outcome outcome = exchange();
      require(outcome.result == 1 + plan.draw % 1000000 && outcome.answers, outcome,
              "the answer with its result");
      break;
    }
    case Course::kLate:
      expectAnswer();
      followLate();
      break;
    case Course::kShifted:
      if (kind.fault == Fault::kBannerText || kind.fault == Fault::kTrailingBytes) {
        // A second attempt meets the banner already.
        const Outcome outcome = expectNoOther();
        require(outcome.answers || outcome.time >= kShort, outcome, "the answer");
      }
      followShifted();
      break;
    case Course::kAway:
      followAway();
      break;
    case Course::kUnwelcome:
      expectAnswer();
      expectFailure();
      break;
  }
}

void LinkLane::followInterruption() {
  expectFailure();
  before_ = 0;  // nothing is sent any more
  expectFailure();
  link_.resume();
}

/// Each answer is the one to the request before, until the endpoint closes the connection.
void LinkLane::followLate() {
  for (std::uint64_t more = draw(1, 3); more > 0; --more) {
    expectBadReply();
  }
  // The proxy may be a request behind, so this one is late or the first on a new connection.
  proxy_.plan({Fault::kCutAfterRequest, 1, 0, {}});
  const Outcome outcome = exchange();
  require(outcome.result == CQOVLongSocket::kBadReply || (outcome.result == 0 && outcome.answers),
          outcome, "a bad reply or the answer");
}

/// Each exchange takes at least a header's bytes, so what has come too much is used up at last.
void LinkLane::followShifted() {
  for (std::uint64_t more = draw(1, 3); more > 0; --more) {
    expectNoOther();
  }
  proxy_.plan({Fault::kCutAfterRequest, 1, 0, {}});
  const std::size_t mostTries = kMostSlowInARow + proxy_.sent() / sizeof(TLVMsgHeadV3);
  Outcome outcome = expectNoOther();
  for (std::size_t tries = 1; !outcome.answers && !campaign_.failed(); ++tries) {
    require(tries <= mostTries, outcome, "an end of what has come too much");
    outcome = expectNoOther();
  }
}

void LinkLane::followAway() {
  const Outcome last = exchange();
  proxy_.waitUntilAway();
  require((last.result == 0 && last.answers) || isSlow(last), last, "the answer");
  for (std::uint64_t more = draw(1, 2); more > 0; --more) {
    expectFailure();
  }
  proxy_.comeBack();
}

LinkLane::Outcome LinkLane::exchange() {
  static const std::string fill(3000, '\xFF');
  number_ = number_ % kRows + 1;
  const bool walks = walked_ != 0;
  CT7QPackageV3 package;
  package.addRecord(endpoint::command(walks ? endpoint::kGetNext : endpoint::kGet, kTable))
      .addUnsigned(endpoint::kCursorTag, walks ? kRows - walked_ : number_)
      .addOctets(kFillTag, fill.data(), draw(0, fill.size()));
  const auto begin = steady_clock::now();
  since_ = begin;
  link_.sent = link_.tries = 0;
  const unsigned int result = walks ? link_.sendGetNextMsgV3(&package) : link_.sendMsg(&package);
  const auto time = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
  ++figures_.exchanges;
  figures_.walks += walks ? 1 : 0;
  ++(result == 0                           ? figures_.answered
     : result == CQOVLongSocket::kBadReply ? figures_.bad
                                           : figures_.failed);
  raise(figures_.longest_ms, time.count());
  const std::uint64_t rows = rowsOf(package, walked_);
  const Outcome outcome{
      result,
      walks ? rows == walked_ && endsAt(package, rows) : isAnswer(package, number_),
      isRequest(package, number_),
      package.count(),
      rows,
      time};
  require(time < kTooLong, outcome, "an end within 5 seconds");
  require(holdsWhatIsDocumented(outcome), outcome, "what is documented in the package");
  return outcome;
}

/// Whether the exchange has failed since the answer was not there within the short time-out: the
/// machine's fault. An answer that was sent in time is the link's to receive, but on a busy machine
/// some of very many come late even so.
bool LinkLane::isSlow(const Outcome& outcome) {
  constexpr std::int64_t kFew = 10;
  constexpr std::int64_t kVeryMany = 10000;
  if (!hasty_ || outcome.result != CQOVLongSocket::kSocketFailed || outcome.time < kShort ||
      (link_.tries != 2 && !proxy_.isAway())) {
    return false;
  }
  const auto answered = proxy_.answered();
  const bool wasInTime = answered >= link_.sentAt && answered < link_.sentAt + kInTime;
  return !wasInTime || ++figures_.missed <= kFew + figures_.exchanges / kVeryMany;
}

bool LinkLane::holdsWhatIsDocumented(const Outcome& outcome) const {
  if (walked_ != 0) {
    return outcome.result == 0 || (outcome.rows == outcome.count && outcome.rows == before_);
  }
  switch (outcome.result) {
    case CQOVLongSocket::kBadReply:
      return outcome.count == 0;
    case CQOVLongSocket::kSocketFailed:
      // That result of the endpoint's own has its records.
      return link_.sent == 0
                 ? outcome.asks
                 : outcome.count == 0 || kFaultKinds[kind_].fault == Fault::kResultOfLink;
    default:
      return true;
  }
}

void LinkLane::expectAnswer() {
  Outcome outcome = exchange();
  for (int tries = 0; isSlow(outcome) && tries < kMostSlowInARow; ++tries) {
    ++figures_.slow;
    outcome = exchange();
  }
  require(outcome.result == 0 && outcome.answers, outcome, "the answer");
}

void LinkLane::expectFailure() {
  const Outcome outcome = exchange();
  require(outcome.result == CQOVLongSocket::kSocketFailed, outcome, "a failure of the socket");
}

void LinkLane::expectBadReply() {
  const Outcome outcome = exchange();
  require(outcome.result == CQOVLongSocket::kBadReply, outcome, "a bad reply");
}

LinkLane::Outcome LinkLane::expectNoOther() {
  const Outcome outcome = exchange();
  require(outcome.answers || outcome.asks || outcome.count == 0, outcome,
          "no other request's answer");
  return outcome;
}

void LinkLane::require(bool holds, const Outcome& outcome, const char* expected) {
  if (holds || campaign_.failed()) {
    return;
  }
  std::ostringstream what;
  what << now() << ": expected " << expected << "; result " << outcome.result << ", "
       << outcome.count << " records, " << (outcome.answers ? "the" : "not the")
       << " answer, request " << number_ << ", walk of " << walked_ << ", after "
       << outcome.time.count() << " ms. " << proxy_.failure();
  campaign_.fail(what.str());
}

}  // namespace qov::endure
