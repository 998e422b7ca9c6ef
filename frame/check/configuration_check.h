#ifndef QOV_FRAME_CHECK_CONFIGURATION_CHECK_H
#define QOV_FRAME_CHECK_CONFIGURATION_CHECK_H

#include <qovpub/qov_check.h>

#include <string>
#include <vector>

#include "frame/check/configuration_places.h"
#include "frame/env/env_proc_files.h"
#include "frame/env/failure.h"

namespace qov {

/// What `failure` says, without what was tried.
QOVFinding findingOf(const Failure& failure, bool isWarning = false);

/// Appends what is wrong with the configuration file of the process `procName`, whose paths are
/// `files` and whose sections have these readers, and with the place of its log.
void checkConfiguration(const ProcFiles& files, const std::string& procName,
                        const SectionReaders& readers, std::vector<QOVFinding>& findings);

}  // namespace qov

#endif
