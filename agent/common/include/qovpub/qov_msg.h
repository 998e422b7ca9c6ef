#ifndef QOVPUB_QOV_MSG_H
#define QOVPUB_QOV_MSG_H

#include <cstdint>
#include <sstream>

/// Header of the messages between the modules of one process: 32 bytes, host byte order.
struct __attribute__((packed)) QOVMsgHead {
  QOVMsgHead();  // defaults, sn_ = next serial

  std::uint32_t magic_;
  std::uint8_t version_;
  std::uint8_t type_;
  std::uint8_t mst_;
  std::uint8_t spid_;
  std::uint8_t smid_;
  std::uint8_t rpid_;
  std::uint8_t rmid_;
  std::uint8_t flags_;
  std::int32_t cid_;
  std::uint32_t sn_;
  std::uint64_t opc_;
  std::uint32_t len_;

  void dump(std::ostringstream& out) const;

  static std::uint32_t u32SN_;
};

#endif
