#ifndef QOV_TESTS_MODULE_LIBS_OPCODES_H
#define QOV_TESTS_MODULE_LIBS_OPCODES_H

namespace qov::test {

/// Operation code whose handler waits at the gate of events.h.
constexpr unsigned long long kWaitAtGate = 900;

}  // namespace qov::test

#endif
