#ifndef QOV_FRAME_ENV_INI_IMPORT_H
#define QOV_FRAME_ENV_INI_IMPORT_H

#include <ace/Configuration_Import_Export.h>

#include <string>

namespace qov {

/// Reads `fileName` with `importer`: 0, or -1 when the file cannot be read or is no INI file. All
/// before the first faulty line is read then; but nothing at all of a file that ACE's reader must
/// not see: for a line that begins with "=" or a zero byte it looks before its buffer.
int importIniFile(ACE_Ini_ImpExp& importer, const std::string& fileName);

}  // namespace qov

#endif
