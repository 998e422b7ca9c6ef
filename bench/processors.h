#ifndef QOV_BENCH_PROCESSORS_H
#define QOV_BENCH_PROCESSORS_H

#include <benchmark/benchmark.h>

/// Confines every thread of this process, and those that are started later, to `count` of the
/// processors that it may use. Where there are fewer it says so in the row and returns false.
///
/// On one processor, a change between two threads is part of each hand-over, ours and theirs, which
/// brings a ratio nearer to 1. On several, a ratio also tells where the scheduler has put which
/// thread, and varies from run to run.
bool useProcessors(benchmark::State& state, int count);

#endif
