#ifndef QOV_FRAME_CHECK_LIBRARY_CHECK_H
#define QOV_FRAME_CHECK_LIBRARY_CHECK_H

#include <qovpub/qov_check.h>

#include <list>
#include <map>
#include <string>

namespace qov {

/// Opens the libraries of `modules`, in that order, in a child process, which passes for the
/// process `procName`. Gives those that cannot be modules, and why. One that ends the child, or
/// takes longer than `how` says, is among them, and the others are opened in another child.
/// Throws std::system_error when there can be no child.
std::map<std::string, std::string> faultsOfLibraries(std::list<std::string> modules,
                                                     const std::string& procName,
                                                     const QOVCheckOptions& how);

}  // namespace qov

#endif
