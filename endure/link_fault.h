#ifndef QOV_ENDURE_LINK_FAULT_H
#define QOV_ENDURE_LINK_FAULT_H

#include <array>
#include <cstddef>

namespace qov::endure {

/// What a FaultProxy does to a link.
enum class Fault {
  kNone,
  // Behind a whole answer
  kCutBehind,
  kResetBehind,
  kHalfCloseBehind,
  // In place of the answer
  kCutAtRequest,
  kCutInRequest,
  kCutAfterRequest,
  kResetAfterRequest,
  kHalfClose,
  kCutInHead,
  kResetInHead,
  kCutInBody,
  kResetInBody,
  kHalfCloseInBody,
  kTooLong,
  kResultOfLink,
  kInterrupt,
  // Without harm
  kDelay,
  kSplit,
  kByteForByte,
  kSplitRequest,
  kDuplicateRequest,
  // To what the answer says
  kOldAnswer,
  kWrongSerial,
  kWrongMagic,
  kWrongVersion,
  kWrongCellType,
  kWrongRecordLength,
  kRandomBody,
  kErrorResult,
  // Beside the answers
  kDuplicateAnswer,
  kBannerMessage,
  kBannerText,
  kTrailingBytes,
  kShortLength,
  kNegativeLength,
  // The endpoint is away
  kRefuse,
  kQuiet,
  kCloseAccepted,
  kResetAccepted,
  // Silence
  kSwallow,
  kUnread,
  kStallInHead,
  kStallInBody,
  kLateAnswer,
  kCrawl,
  kLongLength,
};

/// What is documented to come of a fault. The exchange behind it works, unless said otherwise.
enum class Course {
  kAnswered,     ///< the answer
  kFails,        ///< the attempt fails: the answer by the retry, or the socket's failure
  kInterrupted,  ///< the socket's failure without a retry, until resume()
  kBad,          ///< a bad reply
  kMayBeBad,     ///< a bad reply, or an answer with other content: nothing tells that it is wrong
  kError,        ///< the answer with its result
  kLate,         ///< bad replies, each an answer too late, until the endpoint closes the connection
  kShifted,      ///< anything but another request's answer, until the connection is a new one
  kAway,         ///< answered, then the socket's failure until the endpoint is back
  kUnwelcome,    ///< answered, then the socket's failure once
};

struct FaultKind {
  Fault fault;
  const char* name;
  Course course;
  bool needsTimeOut;  ///< for a link with short time-outs
};

inline constexpr std::array kFaultKinds{
    FaultKind{Fault::kNone, "none", Course::kAnswered, false},
    FaultKind{Fault::kCutBehind, "cut-behind", Course::kAnswered, false},
    FaultKind{Fault::kResetBehind, "reset-behind", Course::kAnswered, false},
    FaultKind{Fault::kHalfCloseBehind, "half-close-behind", Course::kAnswered, false},
    FaultKind{Fault::kCutAtRequest, "cut-at-request", Course::kFails, false},
    FaultKind{Fault::kCutInRequest, "cut-in-request", Course::kFails, false},
    FaultKind{Fault::kCutAfterRequest, "cut-after-request", Course::kFails, false},
    FaultKind{Fault::kResetAfterRequest, "reset-after-request", Course::kFails, false},
    FaultKind{Fault::kHalfClose, "half-close", Course::kFails, false},
    FaultKind{Fault::kCutInHead, "cut-in-head", Course::kFails, false},
    FaultKind{Fault::kResetInHead, "reset-in-head", Course::kFails, false},
    FaultKind{Fault::kCutInBody, "cut-in-body", Course::kFails, false},
    FaultKind{Fault::kResetInBody, "reset-in-body", Course::kFails, false},
    FaultKind{Fault::kHalfCloseInBody, "half-close-in-body", Course::kFails, false},
    FaultKind{Fault::kTooLong, "too-long", Course::kFails, false},
    FaultKind{Fault::kResultOfLink, "result-of-link", Course::kFails, false},
    FaultKind{Fault::kInterrupt, "interrupt", Course::kInterrupted, false},
    FaultKind{Fault::kDelay, "delay", Course::kAnswered, false},
    FaultKind{Fault::kSplit, "split", Course::kAnswered, false},
    FaultKind{Fault::kByteForByte, "byte-for-byte", Course::kAnswered, false},
    FaultKind{Fault::kSplitRequest, "split-request", Course::kAnswered, false},
    FaultKind{Fault::kDuplicateRequest, "duplicate-request", Course::kAnswered, false},
    FaultKind{Fault::kOldAnswer, "old-answer", Course::kBad, false},
    FaultKind{Fault::kWrongSerial, "wrong-serial", Course::kBad, false},
    FaultKind{Fault::kWrongMagic, "wrong-magic", Course::kBad, false},
    FaultKind{Fault::kWrongVersion, "wrong-version", Course::kBad, false},
    FaultKind{Fault::kWrongCellType, "wrong-cell-type", Course::kBad, false},
    FaultKind{Fault::kWrongRecordLength, "wrong-record-length", Course::kBad, false},
    FaultKind{Fault::kRandomBody, "random-body", Course::kMayBeBad, false},
    FaultKind{Fault::kErrorResult, "error-result", Course::kError, false},
    FaultKind{Fault::kDuplicateAnswer, "duplicate-answer", Course::kLate, false},
    FaultKind{Fault::kBannerMessage, "banner-message", Course::kLate, false},
    FaultKind{Fault::kRefuse, "refuse", Course::kAway, false},
    FaultKind{Fault::kCloseAccepted, "close-accepted", Course::kUnwelcome, false},
    FaultKind{Fault::kResetAccepted, "reset-accepted", Course::kUnwelcome, false},
    FaultKind{Fault::kBannerText, "banner-text", Course::kShifted, true},
    FaultKind{Fault::kTrailingBytes, "trailing-bytes", Course::kShifted, true},
    FaultKind{Fault::kShortLength, "short-length", Course::kShifted, true},
    FaultKind{Fault::kNegativeLength, "negative-length", Course::kShifted, true},
    FaultKind{Fault::kQuiet, "quiet", Course::kAway, true},
    FaultKind{Fault::kSwallow, "swallow", Course::kFails, true},
    FaultKind{Fault::kUnread, "unread", Course::kFails, true},
    FaultKind{Fault::kStallInHead, "stall-in-head", Course::kFails, true},
    FaultKind{Fault::kStallInBody, "stall-in-body", Course::kFails, true},
    FaultKind{Fault::kLateAnswer, "late-answer", Course::kFails, true},
    FaultKind{Fault::kCrawl, "crawl", Course::kFails, true},
    FaultKind{Fault::kLongLength, "long-length", Course::kFails, true},
};

}  // namespace qov::endure

#endif
