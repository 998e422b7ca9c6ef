#ifndef QOV_LINK_DUMP_TEXT_H
#define QOV_LINK_DUMP_TEXT_H

#include <new>
#include <sstream>
#include <string>

namespace qov {

/// The text form of a package or a record, for a log line; empty when there is no memory. It costs
/// a digest: ask first whether the line will be written.
template <class Dumped>
std::string dumpOf(const Dumped& what) try {
  std::ostringstream out;
  what.dump(out);
  return out.str();
} catch (const std::bad_alloc&) {
  return {};
}

}  // namespace qov

#endif
