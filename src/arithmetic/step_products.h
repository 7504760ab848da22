// StepProducts: the products of one step of a Newton iteration.
//
// A step forms one product of which the upper part is known beforehand, since it is near 1 or near the
// dividend. Only the rest is wanted, and that is told by the product modulo M = 2^(64 m) - 1 as soon as the
// rest is below M/2 in magnitude: a transform of m words instead of one of the product's whole length. One of
// the step's numbers goes into further products, no longer than m words; it is transformed once and kept.
//
// Short products are formed whole, each on its own; M then lies beyond the product.
//
// Every product is checked by residues (kc_BSRModularCheckFailed): whole ones modulo 2^61 - 1, those modulo M
// modulo residue::Q, which divides M.
#pragma once

#include "multiply/table/km_MULv3.h"
#include "shell/types.h"

namespace kelvane {

class StepProducts {
public:
  struct Factor {
    const u64* words;
    u64 n; // at least 1
  };
  struct Needs {
    u64 whole;   // words of the longest product wanted whole
    u64 wrapped; // least m; also at least the words of each factor
    u64 full;    // words of the product modulo M, formed whole
    bool keep;   // the kept factor's transform is kept; else its products are formed apart
    bool pair;   // wrapped() of two factors of which none is kept
  };

  // work: work_bytes(needs, context) bytes, 64-byte aligned; the context must outlive the object.
  StepProducts(const km_MULv3::Context& context, const Needs& needs, void* work);
  static u64 work_bytes(const Needs& needs, const km_MULv3::Context& context);
  StepProducts(const StepProducts&) = delete;
  StepProducts& operator=(const StepProducts&) = delete;

  u64 m() const { return m_; }
  // The words of x must stay until the last product with it.
  void keep(Factor x);
  // All return the one place of results, which no factor may overlap. whole: a.n + x.n words of a x.
  u64* whole(Factor a);
  // m words in [0, M] congruent to a x; to a b, for which `pair` is needed unless they are the same.
  u64* wrapped(Factor a);
  u64* wrapped(Factor a, Factor b);

private:
  struct Placement;

  u64* finish_wrapped(Factor a, Factor b, void* TA, const void* TB);

  const km_MULv3::Context& context_;
  km_MULv3::btp_storage storage_;
  const km_MULv3::abstract_ntp* record_; // null: short
  u64 m_;
  Factor kept_{nullptr, 0};
  u64 kept_hash_ = 0;
  u64* out_;
  void *TX_, *TA_, *TB_, *scratch_; // TX: null when nothing is kept
  void* work_;                      // of a product formed apart
};

namespace newton {

// w <- w - N 2^(64 at) modulo M = 2^(64 m) - 1, in [0, M]; w has m words, N any number. It stands for the
// number of least magnitude congruent to it: itself, or, when its top bit is set, itself less M, that is -~w.
// Returns the sign (true: negative).
bool subtract_modulo(u64* w, u64 m, const u64* N, u64 n, u64 at);

// The magnitude of that number: its length without zero words at the top, and n of its words from w on.
u64 magnitude_length(const u64* w, u64 m, bool negative);
void copy_magnitude(u64* out, const u64* w, u64 n, bool negative);

// w <- w x modulo 2^(64 m) - 1, in [0, M].
void multiply_modulo(u64* w, u64 m, u64 x);

} // namespace newton

} // namespace kelvane
