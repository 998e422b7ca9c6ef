#ifndef QOVPUB_QOV_OM_MESSAGE_PACKAGE_H
#define QOVPUB_QOV_OM_MESSAGE_PACKAGE_H

#include <qovpub/qov_export.h>
#include <qovpub/qov_message_package.h>

#include <memory>
#include <sstream>

/// A message between modules that carries a whole V3 package in place of records.
///
/// It travels as any CQOV_MsgPackage does. A receiver tells it apart with dynamic_cast: bit 0 of
/// the header's flags says what bytes are, but a header may be copied to a package of the other
/// class. Records put into the OM package itself belong to no byte form but that of the allocating
/// encode().
///
/// Thread: as CQOV_MsgPackage; the inner package is a part of it.
/// Owns:   the inner package and its own records.
/// Errors: as CQOV_MsgPackage.
class QOV_EXPORT CQOV_OM_MsgPackage : public CQOV_MsgPackage {
 public:
  /// A default header with flags bit 0 set. Takes `inner`, which must come from `new` or be null.
  explicit CQOV_OM_MsgPackage(CT7QPackageV3* inner);
  /// A deep copy, the inner package included; std::bad_alloc when there is no memory. An inner
  /// package of a class derived from CT7QPackageV3 is copied as a plain one.
  CQOV_OM_MsgPackage(const CQOV_OM_MsgPackage& other);
  /// The same for an existing package. When it throws, the inner package is the old one and some of
  /// the package's own records may be gone.
  CQOV_OM_MsgPackage& operator=(const CQOV_OM_MsgPackage& other);
  /// Takes header, inner package and records over as the base does; `other` has no inner package
  /// then. A reference to the inner package stays valid.
  CQOV_OM_MsgPackage(CQOV_OM_MsgPackage&& other) noexcept = default;
  /// The same for an existing package, whose inner package and records are deleted.
  CQOV_OM_MsgPackage& operator=(CQOV_OM_MsgPackage&& other) noexcept = default;
  /// Deletes the inner package, then the records.
  ~CQOV_OM_MsgPackage() override;

  /// The inner package, or null; it stays here.
  CT7QPackageV3* get() const noexcept { return inner_.get(); }
  /// Hands the inner package, or null, to the caller and forgets it.
  CT7QPackageV3* release() noexcept { return inner_.release(); }
  /// Deletes the inner package and takes `p`, which must come from `new` or be null. The package
  /// that is here already stays.
  void set(CT7QPackageV3* p) noexcept;

  /// Reads an internal header of 32 bytes and, behind it, the inner package, which is cleared first
  /// if there is one and made otherwise; one that get() gave stays valid.
  ///
  /// Returns the number of the inner package's record bytes or kFailed. The header's LEN and flags
  /// are not looked at: the inner package judges the bytes behind the header. A bad header leaves
  /// everything as it was, and so does missing memory for a new inner package. If the inner package
  /// is bad, the header has been taken over and the inner package has no records.
  /// decodeFault() tells why, its position counted from the internal header.
  unsigned int decode(unsigned char* buf, unsigned int size) override;
  using CQOV_MsgPackage::decode;

  /// Not the byte form of the message, which only the other encode() writes. Kept as it is: with an
  /// inner package whose records take R bytes it writes the header with LEN 28 + R, the header
  /// again with LEN R, and this package's own records, and returns 60 + R. The buffer has room for
  /// what is written and what is returned, whichever is more; bytes not written are 0. Without an
  /// inner package it is the header alone, with LEN 0. The caller frees `buf` with delete[]; on
  /// failure returns kFailed with `buf` null.
  unsigned int encode(unsigned char*& buf) override;

  /// Encodes header and inner package into `buf` and returns the number of bytes written. Stores
  /// the length of the inner package in the header. kFailed, with nothing changed, when `size` is
  /// too small, which is not logged, when `buf` is null, or when the inner package cannot be
  /// encoded.
  unsigned int encode(unsigned char* buf, unsigned int size) override;

  /// Writes the header and the own records as CQOV_MsgPackage does, then the inner package.
  void dump(std::ostringstream& out) const override;

  // clear() is the base's: it deletes the own records and leaves the inner package alone.

 private:
  std::unique_ptr<CT7QPackageV3> inner_;
};

/// Makes the package for a message with that header: a CQOV_OM_MsgPackage without an inner package
/// when bit 0 of its flags is set, else a CQOV_MsgPackage. No field is copied, the new package has
/// default values until it decodes the message or is given them. The caller owns it; null, with
/// errno ENOMEM, when there is no memory.
QOV_EXPORT CQOV_MsgPackage* CreateQovMsgPackage(const QOVMsgHead& head);

#endif
