#ifndef QOV_CONFIG_INI_FILE_REPLACEMENT_H
#define QOV_CONFIG_INI_FILE_REPLACEMENT_H

#include <string>

namespace qov {

/// Makes `content` what `fileName` holds, following symbolic links. Refuses what is no regular
/// file, or one that this process may not write. False with errno on failure.
///
/// The content goes into a temporary file beside the old one, which takes its place in one step,
/// with its owner, group and permissions; a file that does not exist yet gets 0644 less the file
/// mode mask. A process that dies before that leaves the old file, and the temporary one, whose
/// name is the file's with "." and six characters added.
///
/// Where no file can be put in its place (a directory that is not writable, a foreign owner, a
/// mount point, a name that is too long for the six characters), it is overwritten, see
/// overwriteFile().
bool replaceFile(const std::string& fileName, const std::string& content);

}  // namespace qov

#endif
