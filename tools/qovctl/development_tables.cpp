#include "tools/common/endpoint_protocol.h"
#include "tools/qovctl/tables.h"

namespace qov::ctl {

const Tables& developmentTables() {
  static const Tables kTables({{endpoint::kInterfaces,
                                "interfaces",
                                {{endpoint::kInterfaceName, "name", CTLVCell::TLV_STRING},
                                 {endpoint::kInterfaceUp, "up", CTLVCell::TLV_BOOL},
                                 {endpoint::kInterfaceHardware, "hardware", CTLVCell::TLV_OCTET},
                                 {endpoint::kInterfaceMtu, "mtu", CTLVCell::TLV_UINT},
                                 {endpoint::kReceivedBytes, "received", CTLVCell::TLV_UINT},
                                 {endpoint::kSentBytes, "sent", CTLVCell::TLV_UINT}}},
                               {endpoint::kMounts,
                                "mounts",
                                {{endpoint::kMountPoint, "point", CTLVCell::TLV_STRING},
                                 {endpoint::kMountDevice, "device", CTLVCell::TLV_STRING},
                                 {endpoint::kMountType, "type", CTLVCell::TLV_STRING},
                                 {endpoint::kMountFlags, "flags", CTLVCell::TLV_STRING}}},
                               {endpoint::kProcesses,
                                "processes",
                                {{endpoint::kProcessName, "name", CTLVCell::TLV_STRING},
                                 {endpoint::kProcessState, "state", CTLVCell::TLV_STRING},
                                 {endpoint::kThreads, "threads", CTLVCell::TLV_UINT},
                                 {endpoint::kResidentKb, "resident-kb", CTLVCell::TLV_UINT},
                                 {endpoint::kStarted, "started", CTLVCell::TLV_TIME}}}});
  return kTables;
}

const Table& countsTable() {
  static const Table kCounts{0,
                             "counts",
                             {{endpoint::kConnections, "connections", CTLVCell::TLV_UINT},
                              {endpoint::kRequests, "requests", CTLVCell::TLV_UINT},
                              {endpoint::kReplies, "replies", CTLVCell::TLV_UINT},
                              {endpoint::kRows, "rows", CTLVCell::TLV_UINT},
                              {endpoint::kEnds, "ends", CTLVCell::TLV_UINT},
                              {endpoint::kStored, "stored", CTLVCell::TLV_UINT},
                              {endpoint::kRefusals, "refusals", CTLVCell::TLV_UINT}}};
  return kCounts;
}

}  // namespace qov::ctl
