// Loops of plain arithmetic over many values run on the widest vectors the
// processor has: a function marked QD_WIDEST_VECTORS is built for AVX2 as
// well as for the baseline, and the one for the processor at hand is chosen
// as the library loads. Both give the same bits: they do the same IEEE
// operations in the same order, and no multiply and add are fused (the
// build turns contraction off).
#pragma once

#include <cstddef>  // defines __GLIBC__ where the C library is glibc

// The choice as the library loads needs glibc's indirect functions, whose
// resolvers run before some sanitizers' runtimes are up: GCC builds make
// it, except the thread-checked one (the fuzzers build with clang).
#if defined(__x86_64__) && defined(__GLIBC__) && defined(__GNUC__) && !defined(__clang__) && \
    !defined(__SANITIZE_THREAD__)
#define QD_WIDEST_VECTORS __attribute__((target_clones("avx2", "default")))
#else
#define QD_WIDEST_VECTORS
#endif
