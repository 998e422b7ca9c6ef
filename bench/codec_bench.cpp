// Build, encode, decode and read every value of one message, against msgpack-cxx with the same
// content: the header's fields and, record by record, a command code and tagged values. Ours are
// built as a package, which copies them, and encoded from there; msgpack packs them as they come.
#include <qovpub/qov_message_package.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <msgpack.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "bench/ratio.h"
#include "bench/table.h"

namespace {

// kMadeOctets: both sides make the octets, in new memory, before they put them into the message.
enum class Values { kIntegers, kIntegersAndStrings, kOctets, kMadeOctets };

struct Content {
  unsigned int records;
  unsigned int cells;
  Values values;
  std::string_view text;
};

constexpr std::string_view kText = "0123456789abcdef";
// Longer than what a string type keeps within itself.
constexpr std::string_view kLongText = "0123456789abcdef0123456789abcdef";

constexpr Content kOneTimesFour{1, 4, Values::kIntegers, {}};
constexpr Content kTenTimesEight{10, 8, Values::kIntegersAndStrings, kText};
constexpr Content kTenTimesEightLong{10, 8, Values::kIntegersAndStrings, kLongText};
constexpr Content kHundredTimesTwenty{100, 20, Values::kIntegersAndStrings, kText};
constexpr Content kHundredTimesTwentyIntegers{100, 20, Values::kIntegers, {}};
constexpr Content kOneOctetCell{1, 1, Values::kOctets, {}};
constexpr Content kOneMadeOctetCell{1, 1, Values::kMadeOctets, {}};

const std::vector<unsigned char> octets(60000, 7);

std::uint64_t number(unsigned int record, unsigned int cell) {
  return record + std::uint64_t{17} * cell;
}

std::unique_ptr<unsigned char[]> makeOctets() {
  std::unique_ptr<unsigned char[]> made(new unsigned char[octets.size()]);
  std::copy(octets.begin(), octets.end(), made.get());
  return made;
}

bool isText(const Content& content, unsigned int cell) {
  return content.values == Values::kIntegersAndStrings && cell % 2 == 1;
}

std::uint64_t lastByte(std::string_view bytes) {
  return bytes.size() + static_cast<unsigned char>(bytes.back());
}

// --- ours

void fill(CTLVRecordV3& record, const Content& content, unsigned int index) {
  for (unsigned int i = 0; i < content.cells; ++i) {
    const auto tag = static_cast<unsigned short>(i + 1);
    if (content.values == Values::kOctets) {
      record.addOctets(tag, octets.data(), octets.size());
    } else if (content.values == Values::kMadeOctets) {
      record.addOctets(tag, makeOctets(), octets.size());
    } else if (isText(content, i)) {
      record.addString(tag, content.text);
    } else {
      record.addUnsigned(tag, number(index, i));
    }
  }
}

void fill(CQOV_MsgPackage& package, const Content& content) {
  QOVMsgHead& head = package.head();
  head.type_ = 1;
  head.spid_ = head.rpid_ = 1;
  head.smid_ = 2;
  head.rmid_ = 3;
  head.opc_ = 77;
  for (unsigned int r = 0; r < content.records; ++r) {
    fill(package.addRecord(r + 1), content, r);
  }
}

std::uint64_t read(const CTLVCell& cell) {
  switch (cell.type()) {
    case CTLVCell::TLV_UINT:
      return cell.getUnsigned();
    case CTLVCell::TLV_STRING:
      return lastByte(cell.getString());
    default:
      return lastByte(cell.getOctets());
  }
}

std::uint64_t decodeAndRead(unsigned char* bytes, unsigned int size) {
  CQOV_MsgPackage package;
  if (package.decode(bytes, size) == CQOV_MsgPackage::kFailed) {
    std::abort();
  }
  const CQOV_MsgPackage& got = package;
  std::uint64_t sum = got.head().opc_ + got.head().rmid_;
  for (unsigned long r = 0; r < got.count(); ++r) {
    sum += got[r].cmd();
    for (const CTLVCell& cell : got[r]) {
      sum += cell.tag() + read(cell);
    }
  }
  return sum;
}

std::uint64_t ours(const Content& content, std::vector<unsigned char>& buffer) {
  CQOV_MsgPackage package;
  fill(package, content);
  const unsigned int size = package.encode(buffer.data(), static_cast<unsigned int>(buffer.size()));
  return decodeAndRead(buffer.data(), size);
}

std::uint64_t oursAllocating(const Content& content) {
  CQOV_MsgPackage package;
  fill(package, content);
  unsigned char* bytes = nullptr;
  const unsigned int size = package.encode(bytes);
  const std::unique_ptr<unsigned char[]> own(bytes);
  return decodeAndRead(bytes, size);
}

// --- msgpack's

using Packer = msgpack::packer<msgpack::sbuffer>;

void packHead(Packer& packer) {
  packer.pack_array(9);
  for (const unsigned int field : {1U, 0U, 1U, 2U, 1U, 3U}) {
    packer.pack(field);
  }
  packer.pack(-1);
  packer.pack(std::uint32_t{123456789});
  packer.pack(std::uint64_t{77});
}

void packOctets(Packer& packer, const unsigned char* bytes) {
  const auto size = static_cast<std::uint32_t>(octets.size());
  packer.pack_bin(size);
  packer.pack_bin_body(reinterpret_cast<const char*>(bytes), size);
}

void packRecord(Packer& packer, const Content& content, unsigned int index) {
  packer.pack_array(2);
  packer.pack(std::uint64_t{index} + 1);
  packer.pack_map(content.cells);
  for (unsigned int i = 0; i < content.cells; ++i) {
    packer.pack(static_cast<unsigned short>(i + 1));
    if (content.values == Values::kOctets) {
      packOctets(packer, octets.data());
    } else if (content.values == Values::kMadeOctets) {
      packOctets(packer, makeOctets().get());
    } else if (isText(content, i)) {
      packer.pack_str(static_cast<std::uint32_t>(content.text.size()));
      packer.pack_str_body(content.text.data(), static_cast<std::uint32_t>(content.text.size()));
    } else {
      packer.pack(number(index, i));
    }
  }
}

std::uint64_t read(const msgpack::object& value) {
  switch (value.type) {
    case msgpack::type::POSITIVE_INTEGER:
      return value.as<std::uint64_t>();
    case msgpack::type::STR:
      return lastByte(value.as<std::string_view>());
    default:
      return lastByte({value.via.bin.ptr, value.via.bin.size});
  }
}

std::uint64_t theirs(const Content& content, msgpack::sbuffer& buffer) {
  Packer packer(buffer);
  packer.pack_array(2);
  packHead(packer);
  packer.pack_array(content.records);
  for (unsigned int r = 0; r < content.records; ++r) {
    packRecord(packer, content, r);
  }

  const msgpack::object_handle message = msgpack::unpack(buffer.data(), buffer.size());
  const msgpack::object_array& parts = message.get().via.array;
  const msgpack::object_array& head = parts.ptr[0].via.array;
  std::uint64_t sum = head.ptr[8].as<std::uint64_t>() + head.ptr[5].as<std::uint64_t>();
  const msgpack::object_array& records = parts.ptr[1].via.array;
  for (std::uint32_t r = 0; r < records.size; ++r) {
    const msgpack::object_array& record = records.ptr[r].via.array;
    sum += record.ptr[0].as<std::uint64_t>();
    const msgpack::object_map& cells = record.ptr[1].via.map;
    for (std::uint32_t i = 0; i < cells.size; ++i) {
      sum += cells.ptr[i].key.as<unsigned short>() + read(cells.ptr[i].val);
    }
  }
  return sum;
}

// --- the pairs

void checkSame(benchmark::State& state, std::uint64_t our, std::uint64_t their) {
  if (our != their) {
    state.SkipWithError("the two sides have not read the same values");
  }
}

/// Our encode into the caller's buffer to a new msgpack::sbuffer per message, as its manual shows.
void roundTrip(benchmark::State& state, const Content& content) {
  std::vector<unsigned char> buffer(1 << 17);
  std::uint64_t our = 0;
  std::uint64_t their = 0;
  Ratio ratio(state);
  for (auto _ : state) {
    ratio.ours([&] { benchmark::DoNotOptimize(our = ours(content, buffer)); });
    ratio.theirs([&] {
      msgpack::sbuffer fresh;
      benchmark::DoNotOptimize(their = theirs(content, fresh));
    });
  }
  checkSame(state, our, their);
}

/// Both get a new buffer for each message.
void allocatingRoundTrip(benchmark::State& state, const Content& content) {
  std::uint64_t our = 0;
  std::uint64_t their = 0;
  Ratio ratio(state);
  for (auto _ : state) {
    ratio.ours([&] { benchmark::DoNotOptimize(our = oursAllocating(content)); });
    ratio.theirs([&] {
      msgpack::sbuffer fresh;
      benchmark::DoNotOptimize(their = theirs(content, fresh));
    });
  }
  checkSame(state, our, their);
}

/// Both use their buffer again.
void reusingRoundTrip(benchmark::State& state, const Content& content) {
  std::vector<unsigned char> buffer(1 << 17);
  msgpack::sbuffer reused;
  std::uint64_t our = 0;
  std::uint64_t their = 0;
  Ratio ratio(state);
  for (auto _ : state) {
    ratio.ours([&] { benchmark::DoNotOptimize(our = ours(content, buffer)); });
    ratio.theirs([&] {
      reused.clear();
      benchmark::DoNotOptimize(their = theirs(content, reused));
    });
  }
  checkSame(state, our, their);
}

// --- look-ups

/// Adds 4,096 cells, each after a look-up that does not find it.
template <class Looked>
std::uint64_t findOrAdd() {
  CTLVRecordV3 record;
  Looked& looked = record;
  for (unsigned short tag = 0; tag <= MAX_TAG_VALUE; ++tag) {
    if (looked.find(tag) == nullptr) {
      record.addUnsigned(tag, tag);
    }
  }
  return record.count();
}

/// Through a reference that could change cells to one that cannot; about 1 is right.
void findOrAddThroughNonConst(benchmark::State& state) {
  Ratio ratio(state, 10);
  for (auto _ : state) {
    ratio.ours([] { benchmark::DoNotOptimize(findOrAdd<CTLVRecordV3>()); });
    ratio.theirs([] { benchmark::DoNotOptimize(findOrAdd<const CTLVRecordV3>()); });
  }
}
}  // namespace

int main(int argc, char** argv) {
  row("codec S, 1 x 4 integers", "<= 0.55", roundTrip, kOneTimesFour);
  row("codec M, 10 x 8 integers and 16-byte strings", "<= 0.9", roundTrip, kTenTimesEight);
  row("codec, 10 x 8 with 32-byte strings", "<= 0.95", roundTrip, kTenTimesEightLong);
  row("codec L, 100 x 20 integers and 16-byte strings", "<= 0.9", roundTrip, kHundredTimesTwenty);
  row("codec L, 100 x 20 integers", "", roundTrip, kHundredTimesTwentyIntegers);
  row("codec, 60,000 octets, copied", "", roundTrip, kOneOctetCell);
  agentRow("codec, 60,000 octets, copied", "", roundTrip, kOneOctetCell);
  row("codec, 60,000 octets, taken over", "<= 1.1", roundTrip, kOneMadeOctetCell);
  agentRow("codec, 60,000 octets, taken over", "<= 1.1", roundTrip, kOneMadeOctetCell);
  agentRow("codec M, 10 x 8 integers and 16-byte strings", "", roundTrip, kTenTimesEight);
  row("codec M, both with new buffers", "", allocatingRoundTrip, kTenTimesEight);
  row("codec M, both with their buffers again", "", reusingRoundTrip, kTenTimesEight);
  row("codec, 60,000 octets, copied, both with new buffers", "", allocatingRoundTrip,
      kOneOctetCell);
  agentRow("codec, 60,000 octets, copied, both with new buffers", "", allocatingRoundTrip,
           kOneOctetCell);
  row("codec, 60,000 octets, taken over, both with new buffers", "", allocatingRoundTrip,
      kOneMadeOctetCell);
  agentRow("codec, 60,000 octets, taken over, both with new buffers", "", allocatingRoundTrip,
           kOneMadeOctetCell);
  row("find or add a cell, through a reference to non-const", "about 1", findOrAddThroughNonConst);
  return runTable(argc, argv);
}
