// The bottom of the conversion tree: radix words by repeated word multiplications.
#pragma once

#include "shell/types.h"

namespace kelvane::CBRv2 {

// The n >= 1 words floor(f R^n), or one less, most significant first to top[-1], top[-2], ...
//
// The fraction f is fraction_words(n) words ending at `end`; they are destroyed. Each word is the
// carry out of one multiplication of the fraction by R in place; words at the bottom are dropped as
// fewer are needed. A drop loses less than 2^-64 of the last radix word (see fraction_words), all
// of them together less than n 2^-64.
//
// Cost: n^2 / 2 word multiplications, at about one per cycle.
void radix_words(u64* top, u64 n, u64* end);

} // namespace kelvane::CBRv2
