#ifndef QOVPUB_QOV_MESSAGE_PACKAGE_H
#define QOVPUB_QOV_MESSAGE_PACKAGE_H

#include <memory>
#include <sstream>

#include <qovpub/qov_exception.h>
#include <qovpub/qov_msg.h>

template <class MSG_S_HEAD>
class CTLVPackageV3 {
 public:
  CTLVPackageV3();
  virtual ~CTLVPackageV3();

  virtual unsigned int decode(unsigned char* buf, unsigned int size);
  virtual unsigned int encode(unsigned char*& buf);
  virtual unsigned int encode(unsigned char* buf, unsigned int size);
  virtual void clear();
  virtual void dump(std::ostringstream& out) const;

  MSG_S_HEAD& head();
  const MSG_S_HEAD& head() const;
  /// Takes the record over.
  void append(CTLVRecordV3* record);
  unsigned long count() const;
  CTLVRecordV3& operator[](unsigned long i);
  const CTLVRecordV3& operator[](unsigned long i) const;
};

using CQOV_MsgPackage = CTLVPackageV3<QOVMsgHead>;
using CT7QPackageV3 = CTLVPackageV3<TLVMsgHeadV3>;

/// A copy of `request`'s header turned round (addresses exchanged, type 2, same OPC and SN), no records.
std::unique_ptr<CQOV_MsgPackage> CreateQovRspPackage(const CQOV_MsgPackage& request, std::uint8_t mst = 0);

#endif
