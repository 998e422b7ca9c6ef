#ifndef QOVPUB_QOV_LOG_H
#define QOVPUB_QOV_LOG_H

#include <qovpub/qov_common_debugkit.h>

// What a function that logs writes again and again, in a word each:
//
//     int Worker::readHost(int which) {
//       QOV_GUARD(guard, kInventory);
//       QOV_WARN(guard, 3, "no host %d", which);
//
// is, with the line of its own,
//
//       CQOVDebugKitGuard guard(kInventory, "int Worker::readHost(int)");
//       guard.warn(3, __FUNCTION__, __LINE__, "no host %d", which);

/// Makes `guard`, a CQOVDebugKitGuard of the kit `kitId` (a module's kit has the module's id), with
/// the signature of the function it stands in as this compiler writes it. It costs no string.
#define QOV_GUARD(guard, kitId) \
  CQOVDebugKitGuard guard(static_cast<int>(kitId), __PRETTY_FUNCTION__)

/// @{
/// A record of `guard` with log id `logId`, from this function and line. What follows is printf's
/// format and its arguments, which are evaluated whether the level is on or not.
#define QOV_DEBUG(guard, logId, ...) (guard).debug(logId, __FUNCTION__, __LINE__, __VA_ARGS__)
#define QOV_INFO(guard, logId, ...) (guard).info(logId, __FUNCTION__, __LINE__, __VA_ARGS__)
#define QOV_WARN(guard, logId, ...) (guard).warn(logId, __FUNCTION__, __LINE__, __VA_ARGS__)
#define QOV_ERROR(guard, logId, ...) (guard).error(logId, __FUNCTION__, __LINE__, __VA_ARGS__)
/// @}

#endif
