#ifndef QOV_FRAME_ENV_ENV_INI_IMPORT_H
#define QOV_FRAME_ENV_ENV_INI_IMPORT_H

#include <ace/Configuration.h>
#include <ace/Configuration_Import_Export.h>

#include <string>

#include "frame/env/failure.h"

namespace qov {

/// Reads `fileName` with `importer`: 0, or -1 when the file cannot be read, is no regular file or
/// is no INI file. All before the first faulty line is read then; but nothing at all of a file that
/// ACE's reader must not see: for a line that begins with "=" or a zero byte it looks before its
/// buffer. Never waits, as opening a pipe would.
int importIniFile(ACE_Ini_ImpExp& importer, const std::string& fileName);

/// Opens `heap` and reads `text` into it as a file with this content: 0, or what ACE says of its
/// first faulty line. Without memory `heap` stays empty, and the result is 0.
int importIniText(ACE_Configuration_Heap& heap, const std::string& text);

/// Why importIniFile() refuses `fileName`: the system's reason, or the faulty line and what is
/// wrong there. Looks at the file anew; the cause is empty when nothing is wrong any more.
Failure whyNoIniFile(const std::string& fileName);

}  // namespace qov

#endif
