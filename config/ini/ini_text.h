#ifndef QOV_CONFIG_INI_INI_TEXT_H
#define QOV_CONFIG_INI_INI_TEXT_H

#include <ace/Configuration.h>

#include <string>

namespace qov {

/// True if a line with `key` and `value` reads back as these two. `key` is one that ACE accepts.
bool fitsIniLine(const std::string& key, const std::string& value);

/// The file that reads back as `heap`, laid out as ACE's exporter does it. That one writes values
/// as they are; but ACE's reader strips white space around a value and one pair of quotes, so those
/// values get quotes here.
std::string toIniFile(ACE_Configuration_Heap& heap);

}  // namespace qov

#endif
