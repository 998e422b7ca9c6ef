#ifndef SKELETON_MODULE_H
#define SKELETON_MODULE_H

#include <cstdint>

// What other modules have to know to ask the module `skeleton`.
namespace skeleton_module {

// The module's number, which no other module of the agent may have, and its asker's.
constexpr std::uint8_t kModule = 42;
constexpr std::uint8_t kAsker = kModule + 1;

// Operation codes. kGreet: one record with kName; the answer has one record with kText.
constexpr std::uint64_t kGreet = 1;

// Tags of cells.
constexpr std::uint16_t kName = 1;  // String: whom to greet
constexpr std::uint16_t kText = 2;  // String: the greeting

// The result for a request without a name; 0 is success, and other operations are refused with 255.
constexpr std::uint8_t kNoName = 1;

}  // namespace skeleton_module

#endif
