#include <qovpub/qov_msg.h>
#include <qovpub/qov_utility.h>

#include <ios>
#include <ostream>
#include <string>

#include "msg/plain_numbers.h"

using qov::PlainNumbers;

namespace {

/// Into a stream that PlainNumbers has set up.
void writeValue(const CTLVCell& cell, std::ostringstream& out) {
  switch (cell.type()) {
    case CTLVCell::TLV_OCTET:
      out << "{" << std::hex << std::showbase;
      for (unsigned int i = 0; i < cell.length(); ++i) {
        out << unsigned{cell.value()[i]} << " ";
      }
      out << std::dec << std::noshowbase << "} ";
      break;
    case CTLVCell::TLV_STRING:
    case CTLVCell::TLV_ARRAY:
    case CTLVCell::TLV_JSON:
      // Texts may hold what must not reach a log.
      out << "strlen:" << cell.text().size();
      break;
    case CTLVCell::TLV_UINT:
    case CTLVCell::TLV_BOOL:
    case CTLVCell::TLV_ENUM:
    case CTLVCell::TLV_TIME:
      cell.checkNumerical();
      out << cell.number();
      break;
    case CTLVCell::TLV_INT:
      cell.checkNumerical();
      out << static_cast<std::int64_t>(cell.number());
      break;
    default:
      out << "null";
  }
}

}  // namespace

void QOVMsgHead::dump(std::ostringstream& out) const {
  const PlainNumbers plain(out);
  out << "  VER=" << unsigned{version_} << std::endl;
  out << "  TYP=" << unsigned{type_} << std::endl;
  out << "  MST=" << unsigned{mst_} << std::endl;
  out << "  SPID=" << unsigned{spid_} << std::endl;
  out << "  SMID=" << unsigned{smid_} << std::endl;
  out << "  RPID=" << unsigned{rpid_} << std::endl;
  out << "  RMID=" << unsigned{rmid_} << std::endl;
  out << "  CID=" << std::int32_t{cid_} << std::endl;
  out << "  SN=" << std::uint32_t{sn_} << std::endl;
  out << "  OPC=" << std::uint64_t{opc_} << std::endl;
  out << "  LEN=" << std::uint32_t{len_} << std::endl;
}

void TLVMsgHeadV3::dump(std::ostringstream& out) const {
  constexpr unsigned int kShownDigits = 10;
  const std::string digest = QOV_Utility::DigestSHA256(std::to_string(ssk_));
  const PlainNumbers plain(out);
  out << "RET=" << ret_ << std::endl;
  out << "SSK=" << QOV_Utility::GetLastNCharacter(digest, kShownDigits) << std::endl;
  out << "NID=" << nid_ << std::endl;
  out << "BID=" << bid_ << std::endl;
  out << "SER=" << ser_ << std::endl;
  out << "LEN=" << len_ << std::endl;
}

void CTLVRecordV3::dump(std::ostringstream& out) const {
  const PlainNumbers plain(out);
  out << "  {/*record*/" << std::endl;
  out << "    cmd = " << cmd_ << ", length = " << length() << std::endl;
  for (const CTLVCell& cell : *this) {
    out << "    {"
        << "T,L,V=" << cell.tag() << "," << cell.length() << "," << CTLVCell::typeName(cell.type())
        << ": ";
    writeValue(cell, out);
    out << "}" << std::endl;
  }
  out << "  }" << std::endl;
}

void CTLVRecordV3::dump_i(const CTLVCell& cell, std::ostringstream& out) const {
  const PlainNumbers plain(out);
  writeValue(cell, out);
}
