#ifndef QOVPUB_QOV_EXPORT_H
#define QOVPUB_QOV_EXPORT_H

/// Marks what users of the library may use: its types and functions. The library hides all else.
///
/// It is the same for the library and for its users, however either is compiled: with
/// -fvisibility=hidden, too, an exception or a package is of one type in all modules of a process.
#define QOV_EXPORT __attribute__((visibility("default")))

#endif
