#ifndef QOV_TESTS_LAYERS_INCLUDES_H
#define QOV_TESTS_LAYERS_INCLUDES_H

#include <filesystem>
#include <string>
#include <vector>

namespace qov::layers {

/// The files that `file` includes, as written between the quotes or angle brackets. Lines that are
/// commented out with // do not count.
std::vector<std::string> includesOf(const std::filesystem::path& file);

}  // namespace qov::layers

#endif
