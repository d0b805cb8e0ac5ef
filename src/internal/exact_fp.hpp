// Included last by the files whose double arithmetic must round each step as
// written: a fused multiply-add would skip the rounding of the product and
// change the last bit of the result.
#pragma once

#if defined(__clang__)
#pragma STDC FP_CONTRACT OFF
#elif defined(__GNUC__)
#pragma GCC optimize("fp-contract=off")
#endif
