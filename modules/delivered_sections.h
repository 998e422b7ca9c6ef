#ifndef QOV_MODULES_DELIVERED_SECTIONS_H
#define QOV_MODULES_DELIVERED_SECTIONS_H

#include <qovpub/qov_check.h>

#include <string>
#include <vector>

class CQOV_Ini_Operator;

namespace qov {

/// The sections of the process configuration file that the modules of this folder read, with all of
/// their keys. The modules and `qovctl check` tell which others are ignored.
const std::vector<QOVModuleSection>& deliveredSections();

/// The keys of the configuration that the module does not read in its section.
std::vector<std::string> unknownKeys(CQOV_Ini_Operator& configuration, const std::string& module);

}  // namespace qov

#endif
