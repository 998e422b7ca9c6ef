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

/// What the processes of a round share, in memory of all of them.
struct IniShared {
  std::atomic<bool> stop{false};
  /// Of each writer: the number of the file that it has last begun to save, and last saved.
  std::array<std::atomic<std::uint64_t>, kSavers + 1> begun{};
  std::array<std::atomic<std::uint64_t>, kSavers + 1> saved{};
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
  /// Someone keeps the file locked for longer than a save waits.
  bool isLockedLong = false;
};

/// Writes the first file of a round; false with the reason told.
bool beginIniFile(const IniRound& round, IniShared& shared);
/// Saves one file after the other until the round stops.
void saveIniFiles(const IniRound& round, std::size_t writer, IniShared& shared);
/// Reads one file after the other until the round stops.
void readIniFiles(const IniRound& round, IniShared& shared);
/// Looks at what is left when nobody saves any more.
void readLastIniFile(const IniRound& round, IniShared& shared);

}  // namespace qov::endure

#endif
