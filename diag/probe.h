#ifndef QOV_DIAG_PROBE_H
#define QOV_DIAG_PROBE_H

// QOV_PROBE<n>(name, <n> arguments): a place at which bpftrace, perf or SystemTap can look into a
// running agent, as `usdt:<library>:qovpub:<name>`; docs/probes.md lists them. While nobody
// looks it is one instruction that does nothing, and the loading of the arguments. There are none
// where the compiler finds no <sys/sdt.h> (Debian: systemtap-sdt-dev).
#if __has_include(<sys/sdt.h>)
#include <sys/sdt.h>
#ifdef __clang__
// Its macros count their arguments in a way that clang takes for a probe's own.
#pragma clang diagnostic ignored "-Wgnu-zero-variadic-macro-arguments"
#endif
#define QOV_PROBE5(name, a, b, c, d, e) STAP_PROBE5(qovpub, name, a, b, c, d, e)
#define QOV_PROBE6(name, a, b, c, d, e, f) STAP_PROBE6(qovpub, name, a, b, c, d, e, f)
#define QOV_PROBE7(name, a, b, c, d, e, f, g) STAP_PROBE7(qovpub, name, a, b, c, d, e, f, g)
#else
#define QOV_PROBE5(name, a, b, c, d, e) static_cast<void>(0)
#define QOV_PROBE6(name, a, b, c, d, e, f) static_cast<void>(0)
#define QOV_PROBE7(name, a, b, c, d, e, f, g) static_cast<void>(0)
#endif

#endif
