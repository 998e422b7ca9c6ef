#ifndef QOV_TASK_MESSAGE_TYPES_H
#define QOV_TASK_MESSAGE_TYPES_H

namespace qov {

/// Values of the type field of QOVMsgHead (TP in log texts).
constexpr int kUnknownType = 0;
constexpr int kRequestType = 1;
constexpr int kResponseType = 2;
constexpr int kAsyncType = 3;
constexpr int kSecondAsyncType = 4;

constexpr bool isKnownType(int type) {
  return type >= kRequestType && type <= kSecondAsyncType;
}

}  // namespace qov

#endif
