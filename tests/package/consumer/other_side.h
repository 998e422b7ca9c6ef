#ifndef CONSUMER_OTHER_SIDE_H
#define CONSUMER_OTHER_SIDE_H

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_om_message_package.h>

// What a library of the user's own does with the types of qovpub. It hides all but these functions.
#define OTHER_SIDE __attribute__((visibility("default")))

OTHER_SIDE void throwOnTheOtherSide();
OTHER_SIDE CQOV_MsgPackage* packageOfTheOtherSide();
OTHER_SIDE const void* kitsOfTheOtherSide();

#endif
