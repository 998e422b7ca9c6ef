#ifndef QOV_TESTS_MSG_LOG_LINES_H
#define QOV_TESTS_MSG_LOG_LINES_H

#include <qovpub/qov_message_package.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace qov::tests {

// What decoding logs, word for word, without what differs from run to run.

inline const std::string kPlace = "at File=agent/common/include/qovpub/qov_message_package.h,Line=";
inline const std::string kFunctionV3 =
    ",Function=u_int CTLVPackageV3<MSG_S_HEAD>::getRecord(unsigned char*, unsigned int, "
    "CTLVRecordV3*&) [with MSG_S_HEAD = TLVMsgHeadV3; u_int = unsigned int]";
inline const std::string kFunction =
    ",Function=u_int CTLVPackageV3<MSG_S_HEAD>::getRecord(unsigned char*, unsigned int, "
    "CTLVRecordV3*&) [with MSG_S_HEAD = QOVMsgHead; u_int = unsigned int]";

using Lines = std::vector<std::string>;

/// The log line without its time, thread and line number.
inline std::string withoutNumbers(const std::string& line) {
  const std::size_t from = line.find(") ");
  const std::size_t at = line.find(",Line=");
  if (from == std::string::npos || at == std::string::npos) {
    return line.substr(from == std::string::npos ? 0 : from + 2);
  }
  return line.substr(from + 2, at + 6 - from - 2) + line.substr(line.find(',', at + 1));
}

inline Lines linesOf(const std::string& text) {
  Lines lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(withoutNumbers(line));
  }
  return lines;
}

inline const Lines kNoHead = {
    kPlace +
        ",Function=CTLVPackageV3::verifyMsgHead: pBuf is null or uiBufSize "
        "equal zero!",
    "invalid MSG header!"};
inline const Lines kBadHead = {"invalid MSG header!"};

/// How the log starts to say what is wrong with the records, by the names of tests/vectors.
inline const std::map<std::string, std::string> kRecordFaults{
    {"record-short", ": MIN_RECORD_SIZE(10) > uiRemainLen, buf size="},
    {"record-length",
     " : record length is too long, (usRecordLen +  MIN_RECORD_SIZE) > uiBufSize ->"},
    {"cell-short", " : (MIN_TLV_SIZE > uiBufSize - pos) ->4 < uiBufSize - "},
    {"cell-type", " : data type unmated, received type is "},
    {"cell-length",
     " : data length is too long, ((sDataLen + pos) > usRecordLen + MIN_RECORD_SIZE) ->"},
};

/// The faults as values, by the same names.
inline const std::map<std::string, DecodeFault::Kind> kFaultKinds{
    {"head-short", DecodeFault::Kind::kHeadShort},
    {"magic", DecodeFault::Kind::kMagic},
    {"version", DecodeFault::Kind::kVersion},
    {"type", DecodeFault::Kind::kType},
    {"length", DecodeFault::Kind::kLength},
    {"record-short", DecodeFault::Kind::kRecordShort},
    {"record-length", DecodeFault::Kind::kRecordLength},
    {"cell-short", DecodeFault::Kind::kCellShort},
    {"cell-type", DecodeFault::Kind::kCellType},
    {"cell-length", DecodeFault::Kind::kCellLength},
};

}  // namespace qov::tests

#endif
