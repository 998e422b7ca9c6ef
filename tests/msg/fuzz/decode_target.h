#ifndef QOV_TESTS_MSG_FUZZ_DECODE_TARGET_H
#define QOV_TESTS_MSG_FUZZ_DECODE_TARGET_H

#include <cstddef>
#include <cstdint>

/// The entry that libFuzzer calls; the replay test calls it too.
///
/// The first byte chooses: bit 0 an internal message instead of a V3 one, bit 2 an OM message
/// instead of either, bit 1 that the length in the header is made to fit, of an OM message in the
/// inner header. The rest is the message. Aborts when something that was decoded cannot be encoded,
/// or does not come out the same the second time.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

#endif
