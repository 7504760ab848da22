// CBRv2: conversion of a binary fraction to radix 10^19, and its proof by residues.
//
// A fraction f = F / 2^(64 n) is given as n words, least significant first. The conversion makes
// W words of radix R = 10^19, most significant last, with
//
//   N = floor(f R^W)  or one less.
//
// (How rarely it is one less: see radix_tree.cpp.) The verification computes the residue of
// floor(f R^W) modulo 2^61 - 1 from the binary side, without any part of the conversion.
//
// Both return 0, or nonzero when one of their own checks failed: they have then said so in red, and
// a second call with the same arguments starts afresh. Both give the same words for any number of
// threads (1..256). Inputs are not changed.
//
// Cost in products of n by n words: convert about 0.35 per halving of W down to a cache-sized node,
// verify about 1.
#pragma once

#include "multiply/table/km_MULv3.h"
#include "shell/types.h"

namespace kelvane::CBRv2 {

// Radix words for D digits after the point: three more than hold them, which guard the tail.
constexpr u64 output_words(u64 D) {
  return D / 19 + 3;
}

// Points at which a test may look at or damage the work.
class Faults {
public:
  enum Stage { POWER, PRODUCT, OUTPUT, VERIFY_POWER, VERIFY_PRODUCT };
  virtual ~Faults() = default;
  // The words may be changed. Returns true to make the running call report failure. Any thread.
  virtual bool visit(Stage stage, u64* words, u64 n) = 0;
};

// Bytes of scratch, 64-byte aligned, that the calls below need.
u64 convert_scratch_bytes(u64 W, u64 n, u64 threads, bool reduced_memory = false);
u64 verify_scratch_bytes(u64 W, u64 n, u64 threads, bool reduced_memory = false);

// Estimated work (nanoseconds of one thread), in the units that the calls add to context.progress.
double convert_cost(u64 W, u64 n, u64 threads);
double verify_cost(u64 W, u64 n, u64 threads);

// Labels that the calls show on context.progress, if there is one, when they enter the phase.
inline constexpr const char* LABEL_SQUARING = "Squaring...    ";
inline constexpr const char* LABEL_CONVERTING = "Converting...  ";
inline constexpr const char* LABEL_POWERING = "Powering...   ";
inline constexpr const char* LABEL_MULTIPLYING = "Multiplying...    ";

// out[0, W) <- N. context.threads must be 1..256 and, like W and n, as in the query.
int convert(const km_MULv3::Context& context, u64* out, u64 W, const u64* fraction, u64 n, void* scratch,
            Faults* hook = nullptr);

// *hash_out <- floor(f R^W) mod 2^61 - 1. W = 0 or n = 0 give 0.
int verify(const km_MULv3::Context& context, u64 W, const u64* fraction, u64 n, u64* hash_out, void* scratch,
           Faults* hook = nullptr);

} // namespace kelvane::CBRv2
