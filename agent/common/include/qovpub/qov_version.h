#ifndef QOVPUB_QOV_VERSION_H
#define QOVPUB_QOV_VERSION_H

#include <qovpub/qov_export.h>

/// @{
/// The version of the headers that a program is compiled with.
#define QOVPUB_VERSION_MAJOR 1
#define QOVPUB_VERSION_MINOR 0
#define QOVPUB_VERSION_PATCH 0
#define QOVPUB_VERSION_STRING "1.0.0"
/// @}

/// The version of the library that the process runs with, as in QOVPUB_VERSION_STRING; it may be a
/// later one than the headers'. Thread: any. The text is static.
QOV_EXPORT const char* QOV_Version();

#endif
