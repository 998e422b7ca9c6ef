#include "endure/ini_round.h"

#include <fcntl.h>
#include <qovpub/qov_ini_operator.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <list>
#include <map>
#include <random>
#include <thread>
#include <utility>

#include "endure/handle.h"

namespace qov::endure {
namespace {

constexpr const char* kSection = "FILE";
constexpr int kKeys = 24;

/// So long a save waits for the lock of a file that it writes over.
constexpr std::chrono::seconds kLongestLock(5);

using Clock = std::chrono::steady_clock;
using Items = std::list<std::pair<std::string, std::string>>;

/// All values of the file `number` of `writer`: with small ones and long ones, so that a file has
/// one to sixty thousand bytes.
Items itemsOf(std::size_t writer, std::uint32_t number) {
  std::minstd_rand random(
      static_cast<std::minstd_rand::result_type>(std::uint64_t{number} * 4 + writer + 1));
  // Any limit lets the first one through.
  const std::size_t longest = writer == kBeginner ? 8 : 1U << (3 + random() % 10);
  Items items{{"writer", std::to_string(writer)}, {"number", std::to_string(number)}};
  for (int i = 0; i < kKeys; ++i) {
    std::string value(random() % longest % 2500, static_cast<char>('a' + random() % 26));
    items.emplace_back("key" + std::to_string(i), value + std::to_string(random()));
  }
  return items;
}

std::map<std::string, std::string> sorted(const Items& items) {
  return {items.begin(), items.end()};
}

/// Opens the file as the round's readers do: with a lock of it if it is written over.
int openToRead(const IniRound& round, CQOV_Ini_Operator& ini) {
  Handle lock;
  if (round.isWrittenOver) {
    lock = Handle(::open(round.file.c_str(), O_RDONLY | O_CLOEXEC));
    ::flock(lock.get(), LOCK_SH);
  }
  return ini.open(round.file.c_str());
}

struct Found {
  std::size_t writer = 0;
  std::uint32_t number = 0;
};

std::string describe(const Items& items) {
  std::string text;
  for (const auto& [key, value] : items) {
    text += key + "=" + value.substr(0, 10) + " ";
  }
  return text;
}

using Saves = std::array<IniSave, kSavers + 1>;

/// Whether `saves`, of each writer the last one that had ended before it was read, have replaced
/// it.
bool wasReplaced(const Found& found, const Saves& saves) {
  const IniSave own = saves[found.writer];
  return found.number < own.begin ||
         (found.number == own.begin &&
          std::any_of(saves.begin(), saves.end(),
                      [&](const IniSave& other) { return other.begin > own.end; }));
}

/// Reads the file, which has to be whole, one that was written, and not one of before.
bool find(const IniRound& round, IniShared& shared, Found& found) {
  Saves saves;
  std::copy(shared.saved.begin(), shared.saved.end(), saves.begin());
  CQOV_Ini_Operator ini;
  Items items;
  const int opened = openToRead(round, ini);
  if (opened != 0 || ini.enumerateSections(kSection, items) != 0) {
    shared.fail("a reader finds no whole file: open() gives " + std::to_string(opened));
    return false;
  }
  const auto values = sorted(items);
  const auto writer = values.find("writer");
  const auto number = values.find("number");
  if (writer == values.end() || number == values.end()) {
    shared.fail("a reader finds a part of a file: " + describe(items));
    return false;
  }
  found.writer = std::stoul(writer->second);
  found.number = static_cast<std::uint32_t>(std::stoul(number->second));
  if (found.writer > kBeginner || found.number > shared.begun[found.writer]) {
    shared.fail("a reader finds a file that nobody has written: " + describe(items));
    return false;
  }
  if (values != sorted(itemsOf(found.writer, found.number))) {
    shared.fail("a reader finds parts of several files: " + describe(items));
    return false;
  }
  if (wasReplaced(found, saves)) {
    shared.fail("a reader finds a file that was replaced before: " + describe(items));
    return false;
  }
  return true;
}

bool mayFailWith(const IniRound& round, int error, Clock::duration time) {
  return (error == EFBIG && round.limit != 0) || (error == ENOSPC && round.diskIsSmall) ||
         (error == EWOULDBLOCK && round.isWrittenOver && time >= kLongestLock);
}

void becomeSaver(const IniRound& round) {
  if (round.saver != 0 && (::setgid(round.saver) != 0 || ::setuid(round.saver) != 0)) {
    std::abort();
  }
  // Another user's processes have lost that.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (round.limit != 0) {
    ::signal(SIGXFSZ, round.limitKills ? SIG_DFL : SIG_IGN);
    const rlimit noCore{};
    ::setrlimit(RLIMIT_CORE, &noCore);
    const rlimit size{round.limit, round.limit};
    ::setrlimit(RLIMIT_FSIZE, &size);
  }
}

/// False when the round is lost.
bool saveOne(const IniRound& round, CQOV_Ini_Operator& ini, std::size_t writer, IniShared& shared) {
  const auto begin = Clock::now();
  const std::uint32_t number = ++shared.ticks;
  shared.begun[writer] = number;
  if (ini.setConfigItem(kSection, itemsOf(writer, number)) == 0) {
    shared.saved[writer] = IniSave{number, ++shared.ticks};
    ++shared.saves;
    return true;
  }
  const int error = errno;
  ++shared.refused;
  if (!mayFailWith(round, error, Clock::now() - begin)) {
    shared.fail(std::string("a save fails without a reason: ") + std::strerror(error));
    return false;
  }
  return true;
}

}  // namespace

void IniShared::fail(const std::string& what) {
  if (!failed.exchange(true)) {
    what.copy(why.data(), why.size() - 1);
    told = true;
  }
}

bool beginIniFile(const IniRound& round, IniShared& shared) {
  std::ofstream first(round.file);
  first << '[' << kSection << "]\n";
  first.close();
  if (!first) {
    shared.fail(round.file + " cannot be written: " + std::strerror(errno));
    return false;
  }
  CQOV_Ini_Operator ini;
  if (ini.open(round.file.c_str()) != 0) {
    shared.fail(round.file + " cannot be read");
    return false;
  }
  return saveOne(round, ini, kBeginner, shared);
}

void saveIniFiles(const IniRound& round, std::size_t writer, IniShared& shared) {
  becomeSaver(round);
  while (!shared.stop && !shared.failed) {
    CQOV_Ini_Operator ini;
    if (openToRead(round, ini) != 0) {
      shared.fail("a saver finds no whole file");
      return;
    }
    // As often as not the same operator saves again.
    std::uint64_t more = shared.begun[writer] % 3;
    do {
      if (!saveOne(round, ini, writer, shared)) {
        return;
      }
    } while (more-- > 0 && !shared.stop);
  }
}

void readIniFiles(const IniRound& round, IniShared& shared) {
  std::array<std::uint32_t, kSavers + 1> last{};
  bool isLast = false;
  while (!isLast && !shared.failed) {
    isLast = shared.stop;
    Found found;
    if (!find(round, shared, found)) {
      return;
    }
    if (found.number < last[found.writer]) {
      shared.fail("a reader finds a file that it has found replaced");
      return;
    }
    last[found.writer] = found.number;
    ++shared.reads;
    if (round.isWrittenOver && !isLast) {
      // A saver asks for the lock now and then; readers that never let go would keep it away.
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
}

}  // namespace qov::endure
