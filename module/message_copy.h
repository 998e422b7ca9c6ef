#ifndef QOV_MODULE_MESSAGE_COPY_H
#define QOV_MODULE_MESSAGE_COPY_H

class ACE_Message_Block;

namespace qov {

/// A copy of `mb` that shares nothing with it; null, with errno set, when none can be made.
///
/// ACE's clone() copies the eight bytes of a package block, which are a pointer. Here the copy of
/// such a block (MB_DATA, 8 bytes, not null) points to a package of its own and has no
/// continuation: what a request has there belongs to its one sender. An OM package's copy has a
/// copy of the inner package. A package of any other class derived from CQOV_MsgPackage, and an OM
/// package with an inner one of a derived class, has no copy (ENOTSUP): the base's part alone would
/// be another message.
ACE_Message_Block* copyMessage(const ACE_Message_Block& mb);

/// The same, and the package in the copy, if there is one, is addressed to module `gid` of this
/// process. Nobody waits for an answer to it.
ACE_Message_Block* copyMessageFor(unsigned int gid, const ACE_Message_Block& mb);

}  // namespace qov

#endif
