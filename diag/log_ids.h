#ifndef QOV_DIAG_LOG_IDS_H
#define QOV_DIAG_LOG_IDS_H

namespace qov {

/// Debug kit of the library's own records.
constexpr int kPublicKit = 0;

/// The log ids of all components; what logs lies above diag. Operators and log watchers know the
/// numbers: a number stays with its meaning, and a new record gets a free one.
///
/// docs/log-records.md explains each. The test docs.log_ids compares this list, that page and the
/// code.
namespace log_id {

enum : unsigned long long {
  // Messages in traffic: task and link
  kTraffic = 65535,

  // diag
  kLostRecords = 65536,
  kLogNotConfigured = 65720,
  kLogNotOpened = 65721,
  kLogPathCut = 65722,
  kLogNotRotated = 65772,
  kLogOddValue = 65770,
  kLogSettings = 65771,
  kRepeats = 66050,
  kCallTrace = 18446744073709551615ULL,

  // module: the loader
  kNoModules = 65560,
  kModuleNoLibrary = 65561,
  kModuleNoEntry = 65562,
  kModuleNotCreated = 65563,
  kModuleBadGid = 65564,
  kModuleInitFailed = 65565,
  kModuleStarted = 65566,
  kModuleUnloaded = 65567,
  kListNoConfiguration = 65570,
  kListNotOpened = 65571,
  kListNoMemory = 65572,
  kModuleReason = 65727,
  kMarkerIgnored = 65728,
  kListReason = 65729,
  kModuleLoading = 65730,
  kStopHangs = 65750,
  kUncaught = 65752,
  kCrashed = 65753,
  kForeignClass = 65810,

  // module: messages between modules
  kRouteNull = 65580,
  kRouteNoModule = 65581,
  kRouteRefused = 65582,
  kRouteAllNull = 65583,
  kRouteAllRefused = 65584,
  kRouteAllNotCopied = 65585,
  kCopyLost = 65586,

  // module: plug-ins
  kPluginNullName = 65590,
  kPluginNotOpened = 65591,
  kPluginNotBound = 65592,
  kPluginRemoved = 65593,
  kPluginLoaded = 65594,
  kPluginRemoveNullName = 65595,
  kPluginReason = 65726,

  // frame
  kStarted = 65600,
  kShutDown = 65601,
  kBanner = 65723,
  kOddProcPid = 65724,
  kDirectoryShared = 65725,
  kStartGivenUp = 65751,
  kReloadFailed = 65773,

  // link
  kLinkOddEndpoint = 65610,
  kLinkNotConnected = 65611,
  kLinkConnected = 65612,
  kLinkNotSent = 65613,
  kLinkNoHead = 65614,
  kLinkNoBody = 65615,
  kLinkNotReceived = 65616,
  kLinkSerialMismatch = 65617,
  kLinkErrorReply = 65618,
  kLinkNotEncoded = 65619,
  kLinkExchangeFailed = 65620,
  kWalkManyRecords = 65621,
  kWalkStatus = 65622,
  kWalkEndless = 65623,
  kLinkReason = 65830,

  // task
  kTaskToldToExit = 65637,
  kSendInvalid = 65638,
  kSendFailed = 65639,
  kSendNoResponse = 65640,
  kResponseBadLength = 65641,
  kResponseNull = 65642,
  kSendNull = 65643,
  kWorkerNoMessage = 65644,
  kWorkerExits = 65645,
  kWorkerBadLength = 65646,
  kHandlerResult = 65647,
  kHandlerException = 65648,
  kHandlerUnknownException = 65649,
  kPoolFailed = 65650,
  kSchedulerStop = 65651,
  kSchedulerUnknownType = 65652,
  kWorkerNotMade = 65653,
  kWorkerNotStarted = 65654,
  kPoolStands = 65655,
  kReturnNull = 65656,
  kWaitBegins = 65657,
  kWaitEnds = 65658,
  kLongWait = 65659,
  kLeaderExits = 65660,
  kLeaderStop = 65661,
  kLeaderHangup = 65662,
  kLeaderUnknownBlock = 65663,
  kLeaderNull = 65664,
  kLeaderBadLength = 65665,
  kLeaderNotCopied = 65666,
  kLeaderNullPackage = 65667,
  kAsyncNull = 65668,
  kAsyncNotForwarded = 65669,
  kLeaderUnknownType = 65670,
  kForwardNull = 65671,
  kForwardOtherProcess = 65672,
  kRequestNobodyWaits = 65673,
  kRequestNotCopied = 65674,
  kRequestNotBound = 65675,
  kResponseInvalid = 65676,
  kResponseUnexpected = 65677,
  kResponseNotForwarded = 65678,
  kRequestInvalid = 65679,
  kPoolLate = 65680,
  kStaticTaskNull = 65681,
  kForeignRequest = 65682,
  kReceiverEnded = 65683,
  kSendBusy = 65684,
  kSendTimedOut = 65685,
  kGroupThreadsLeft = 65686,
  kTickFailed = 65900,
  kContinuationFailed = 65901,
  kHandlerLate = 65902,

  // the service manager
  kServiceManagerSilent = 66070,
  kNoWatchdog = 66071,
  kLeaderStuck = 66072,
  kLeadersGoOn = 66073,

  // config
  kXmlNotParsed = 65700,
  kXmlListed = 65701,
  kXmlNothingToList = 65702,
  kXmlNoDevices = 65703,
  kXmlRefused = 65704,
  kXmlNotOpened = 65705,
  kXmlGivenUp = 65706,
  kXmlNoMemory = 65707,
  kXmlNoMap = 65708,
  kXmlNoItem = 65709,
  kXmlItemTwice = 65710,
};

}  // namespace log_id
}  // namespace qov

#endif
