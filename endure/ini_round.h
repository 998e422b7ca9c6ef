#ifndef QOV_ENDURE_INI_ROUND_H
#define QOV_ENDURE_INI_ROUND_H

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace qov::endure {

inline constexpr std::size_t kSavers = 3;
inline constexpr std::size_t kReaders = 2;
/// Who has written the file that a round begins with.
inline constexpr std::size_t kBeginner = kSavers;

struct IniSave {
  std::uint32_t begin = 0;
  std::uint32_t end = 0;
};

/// What the processes of a round share, in memory of all of them.
struct IniShared {
  std::atomic<bool> stop{false};
  /// Counts on with each beginning and each end of a save; a file has the number of its beginning.
  std::atomic<std::uint32_t> ticks{0};
  /// Of each writer: the number of the file that it has last begun to save, and the save that it
  /// has last ended.
  std::array<std::atomic<std::uint32_t>, kSavers + 1> begun{};
  std::array<std::atomic<IniSave>, kSavers + 1> saved{};
  std::atomic<std::int64_t> saves{0};
  std::atomic<std::int64_t> refused{0};
  std::atomic<std::int64_t> reads{0};

  std::atomic<bool> failed{false};
  std::array<char, 1000> why{};  ///< valid once `told`
  std::atomic<bool> told{false};

  void fail(const std::string& what);
};

/// How the processes of a round save and read.
struct IniRound {
  std::string file;
  /// Not 0: no file may have more bytes.
  std::size_t limit = 0;
  /// Whether the limit ends the process; else the save fails.
  bool limitKills = false;
  /// The file's directory is not writable, so the file is written over and readers have to lock it.
  bool isWrittenOver = false;
  /// Savers run as this user; 0: as this process does.
  uid_t saver = 0;
  bool diskIsSmall = false;
};

/// Writes the first file of a round; false with the reason told.
bool beginIniFile(const IniRound& round, IniShared& shared);
/// Saves one file after the other until the round stops.
void saveIniFiles(const IniRound& round, std::size_t writer, IniShared& shared);
/// Reads one file after the other until the round stops, and once more.
void readIniFiles(const IniRound& round, IniShared& shared);

}  // namespace qov::endure

#endif
