#ifndef QOV_EXAMPLES_INVENTORY_STATE_RECORDS_H
#define QOV_EXAMPLES_INVENTORY_STATE_RECORDS_H

#include <qovpub/qov_message_package.h>

namespace devagent {

// Each reads the machine's state now and appends it to `answer` as records. A value that cannot be
// read is left out; CQOV_Exception when nothing can be read at all.

/// One kHostRecord.
void appendHost(CQOV_MsgPackage& answer);

/// A kInterfaceRecord per network interface.
void appendInterfaces(CQOV_MsgPackage& answer);

/// A kFileSystemRecord per mounted file system.
void appendFileSystems(CQOV_MsgPackage& answer);

}  // namespace devagent

#endif
