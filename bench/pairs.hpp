// Pairs: the library beside a peer, one row each in bench/compare.py.
//
// The convention, for every family that adds rows:
//   - Name the two benchmarks BM_<Op>_tav and BM_<Op>_peer, with the same
//     arguments, so that Google Benchmark calls them BM_<Op>_tav/<args> and
//     BM_<Op>_peer/<args>. Benchmarks named otherwise run as before and make
//     no row.
//   - Both count the same bytes (SetBytesProcessed) or the same items
//     (SetItemsProcessed): the row compares throughputs.
//   - The peer names itself with SetLabel ("OpenSSL EVP_EncodeBlock"), and
//     the row shows that label.
//   - Where the two make the same output, TAV_BENCH_CHECK(<Op>) compares
//     them once; every check runs before any benchmark, and a difference
//     stops the program before any timing. (A benchmark that checks for
//     itself and calls SkipWithError fails its row too.)
#pragma once

#include <benchmark/benchmark.h>

namespace tavbench {

// Adds a check under the pair's name; returns true so that it can
// initialise a static.
bool add_check(const char *pair, bool (*same_output)());

} // namespace tavbench

#define TAV_BENCH_CHECK(op)                                                                        \
    static bool tav_bench_check_##op();                                                            \
    [[maybe_unused]] static const bool tav_bench_check_added_##op =                                \
        ::tavbench::add_check(#op, tav_bench_check_##op);                                          \
    static bool tav_bench_check_##op()
