#ifndef QOV_ENDURE_LIFE_MODULE_H
#define QOV_ENDURE_LIFE_MODULE_H

#include <cstdint>

/// What campaign "life" and its modules agree on.
namespace qov::endure {

/// The modules that may be there.
constexpr std::uint8_t kFirstGid = 100;
constexpr int kGids = 5;

constexpr std::uint64_t kTalk = 1;      ///< its worker then asks and tells the others
constexpr std::uint64_t kQuestion = 2;  ///< is answered
constexpr std::uint64_t kStatic = 3;    ///< goes to the module's static task
constexpr std::uint64_t kLastOfThem = kStatic;

}  // namespace qov::endure

#endif
