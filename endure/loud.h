#ifndef QOV_ENDURE_LOUD_H
#define QOV_ENDURE_LOUD_H

#include <cstddef>
#include <cstdint>
#include <string>

/// What the module "loud" logs and the campaigns "reload" and "soak" look for.
namespace qov::endure {

inline constexpr std::size_t kLoudThreads = 4;

enum class LoudLevel { kDebug, kInfo, kWarn, kError };

inline LoudLevel loudLevelOf(std::uint64_t number) {
  constexpr LoudLevel kLevels[] = {LoudLevel::kError, LoudLevel::kInfo, LoudLevel::kWarn,
                                   LoudLevel::kInfo,  LoudLevel::kInfo, LoudLevel::kDebug,
                                   LoudLevel::kWarn,  LoudLevel::kInfo};
  return kLevels[number % 8];
}

/// The greatest "LogLevel" that shows records of `level`.
inline int shownUpTo(LoudLevel level) {
  switch (level) {
    case LoudLevel::kDebug:
      return 1;
    case LoudLevel::kInfo:
      return 3;
    case LoudLevel::kWarn:
      return 4;
    default:
      return 5;
  }
}

/// As records show it.
inline const char* nameOf(LoudLevel level) {
  constexpr const char* kNames[] = {"DBG", "INFO", "WARN", "ERR"};
  return kNames[static_cast<std::size_t>(level)];
}

inline constexpr const char* kLoudBegin = "loud:";

/// "loud:2:17:3;...;2:17;" with `length` dots. Its end says again whose it is, so that parts of two
/// records do not pass for one.
inline std::string loudText(std::size_t thread, std::uint64_t number, std::size_t length) {
  const std::string whose = std::to_string(thread) + ":" + std::to_string(number);
  return kLoudBegin + whose + ":" + std::to_string(length) + ";" + std::string(length, '.') + ";" +
         whose + ";";
}

}  // namespace qov::endure

#endif
