// Build, encode, decode and read every value of one message, against msgpack-cxx with the same
// content: the header's fields and, record by record, a command code and tagged values.
//
// Everything runs twice: with the allocator as it is in a plain program, and with the settings of
// an agent process, where an allocation of 1024 bytes or more tends to be a mapping of its own.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <qovpub/qov_message_package.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <msgpack.hpp>
#include <string_view>
#include <vector>

#include "bench/ratio.h"

namespace {

enum class Values { kIntegers, kIntegersAndStrings, kOctets };

struct Content {
  unsigned int records;
  unsigned int cells;
  Values values;
};

constexpr Content kFourIntegers{1, 4, Values::kIntegers};
constexpr Content kTenTimesEight{10, 8, Values::kIntegersAndStrings};
constexpr Content kHundredTimesTwenty{100, 20, Values::kIntegersAndStrings};
constexpr Content kHundredTimesTwentyIntegers{100, 20, Values::kIntegers};
constexpr Content kOneOctetCell{1, 1, Values::kOctets};

constexpr std::string_view kText = "0123456789abcdef";
const std::vector<unsigned char> octets(60000, 7);

std::uint64_t number(unsigned int record, unsigned int cell) {
  return record + std::uint64_t{17} * cell;
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
    } else if (isText(content, i)) {
      record.addString(tag, kText);
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
  for (unsigned int field : {1, 0, 1, 2, 1, 3}) {
    packer.pack(field);
  }
  packer.pack(-1);
  packer.pack(std::uint32_t{123456789});
  packer.pack(std::uint64_t{77});
}

void packRecord(Packer& packer, const Content& content, unsigned int index) {
  packer.pack_array(2);
  packer.pack(std::uint64_t{index} + 1);
  packer.pack_map(content.cells);
  for (unsigned int i = 0; i < content.cells; ++i) {
    packer.pack(static_cast<unsigned short>(i + 1));
    if (content.values == Values::kOctets) {
      packer.pack_bin(static_cast<std::uint32_t>(octets.size()));
      packer.pack_bin_body(reinterpret_cast<const char*>(octets.data()),
                           static_cast<std::uint32_t>(octets.size()));
    } else if (isText(content, i)) {
      packer.pack_str(static_cast<std::uint32_t>(kText.size()));
      packer.pack_str_body(kText.data(), static_cast<std::uint32_t>(kText.size()));
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

// Targets of roundTrip: at most 0.65, 0.9, 0.85 and 1.45.
#define QOV_CODEC_BENCH(pair)                                                                 \
  BENCHMARK_CAPTURE(pair, oneRecordOfFourIntegers, kFourIntegers)->UseManualTime();           \
  BENCHMARK_CAPTURE(pair, tenRecordsOfEightCells, kTenTimesEight)->UseManualTime();           \
  BENCHMARK_CAPTURE(pair, hundredRecordsOfTwentyCells, kHundredTimesTwenty)->UseManualTime(); \
  BENCHMARK_CAPTURE(pair, hundredRecordsOfTwentyIntegers, kHundredTimesTwentyIntegers)        \
      ->UseManualTime();                                                                      \
  BENCHMARK_CAPTURE(pair, oneOctetCellOf60000Bytes, kOneOctetCell)->UseManualTime()

QOV_CODEC_BENCH(roundTrip);
QOV_CODEC_BENCH(allocatingRoundTrip);
QOV_CODEC_BENCH(reusingRoundTrip);

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
BENCHMARK(findOrAddThroughNonConst)->UseManualTime();

void runAll(const char* allocator) {
  std::printf("\nallocator: %s\n", allocator);
  std::fflush(stdout);
  benchmark::RunSpecifiedBenchmarks();
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  // Without arguments, enough repetitions for a median and its spread.
  std::vector<char*> arguments(argv, argv + argc);
  char repetitions[] = "--benchmark_repetitions=9";
  char aggregates[] = "--benchmark_report_aggregates_only=true";
  char minTime[] = "--benchmark_min_time=0.02";
  if (argc == 1) {
    arguments.insert(arguments.end(), {repetitions, aggregates, minTime});
  }
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
    return EXIT_FAILURE;
  }

  // The allocator's settings cannot be taken back.
  const pid_t child = fork();
  if (child == 0) {
    runAll("as in a plain program");
    std::_Exit(EXIT_SUCCESS);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
    return EXIT_FAILURE;
  }
  mallopt(M_MMAP_THRESHOLD, 1024);
  mallopt(M_MXFAST, 0);
  runAll("as in an agent process");
  return EXIT_SUCCESS;
}
