#ifndef QOV_MODULE_LIBRARY_SEARCH_H
#define QOV_MODULE_LIBRARY_SEARCH_H

#include <string>
#include <vector>

namespace qov {

/// Of what the dynamic loader has said about the file names that ACE tries for `name`, the text
/// that tells why it cannot be opened: one about a file that is there before those that there is
/// none. It begins with the path of that file.
std::string whyNotOpened(const std::string& name, const std::vector<std::string>& said);

}  // namespace qov

#endif
