#ifndef QOV_TOOLS_COMMON_INPUT_H
#define QOV_TOOLS_COMMON_INPUT_H

#include <cstdio>
#include <string>

namespace qov::tools {

// Both throw std::runtime_error with the cause: what the system says, or that there are more than
// 256 MiB, far more than any use: input that never ends shall not take all memory.

/// All that is left to read.
std::string readAll(std::FILE* from);
std::string readFile(const std::string& path);

}  // namespace qov::tools

#endif
