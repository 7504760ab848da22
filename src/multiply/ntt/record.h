// What the parameter records of both rows of long products, km_HNT and km_VSTv2, have in common: their
// operations come down to two, a transform and the inverse of a sum of products, which each row defines on
// the Engine that it holds.
#pragma once

#include "multiply/ntt/engine.h"
#include "multiply/table/km_MULv3.h"
#include "shell/types.h"

namespace kelvane::ntt {

class Record : public km_MULv3::abstract_ntp {
public:
  const Shape& shape() const { return engine_.shape(); }

  double forward(void* T, const u64* A, u64 L, void* scratch) const final {
    transform(T, A, L, false, scratch);
    return 0;
  }
  double forward_once(void* T, const u64* A, u64 L, void* scratch) const final {
    transform(T, A, L, true, scratch);
    return 0;
  }
  void inverse_fmul(u64* out, u64 n, void* TA, const void* TB, void* scratch) const final {
    const km_MULv3::Term term{TA, TB};
    inverse(out, n, &term, 1, false, scratch);
  }
  void inverse_fsqr(u64* out, u64 n, void* T, void* scratch) const final {
    inverse_fmul(out, n, T, T, scratch);
  }
  u64 max_sum() const final { return MAX_SUM; }
  void inverse_sum(u64* out, u64 n, const km_MULv3::Term* terms, u64 count, void* scratch) const final {
    inverse(out, n, terms, count, false, scratch);
  }
  void inverse_wrapped(u64* out, const km_MULv3::Term* terms, u64 count, void* scratch) const final {
    inverse(out, wrap_words(), terms, count, true, scratch);
  }

protected:
  Record(const Shape& shape, const km_MULv3::Context& context)
      : reduced_(context.reduced_memory), engine_(shape, context.threads, context.progress) {
    threads_ = context.threads;
  }

  // T <- transform of A[0, L); a raw one serves one product.
  virtual void transform(void* T, const u64* A, u64 L, bool raw, void* scratch) const = 0;
  virtual void inverse(u64* out, u64 n, const km_MULv3::Term* terms, u64 count, bool wrapped,
                       void* scratch) const = 0;
  // out <- A B, or A^2 with B null, in one go; see Engine.
  void product_at_once(u64* out, const u64* A, u64 LA, const u64* B, u64 LB, void* TA, void* TB,
                       void* scratch, u64* top) const {
    const u64 n = B == nullptr ? 2 * LA : LA + LB;
    if (reduced_)
      engine_.reduced_product(out, n, A, LA, B, LB, TA, TB, scratch, top);
    else
      engine_.product(out, n, A, LA, B, LB, TA, TB, scratch, top);
  }

  bool reduced_;
  Engine engine_;
};

} // namespace kelvane::ntt
