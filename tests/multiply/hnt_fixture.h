// What the tests of the hybrid NTT share: every instruction set, records, GMP.
#pragma once

#include <gmp.h>

#include "multiply/hnt/km_HNT.h"
#include "multiply/product_fixture.h"
#include "support/short.h"

namespace kelvane::test {

inline std::vector<simd::Isa> every_isa() {
  std::vector<simd::Isa> all;
  for (const simd::Isa isa : {simd::Isa::sse3, simd::Isa::avx2, simd::Isa::avx512, simd::Isa::avx512ifma}) {
    if (simd::supported(isa)) all.push_back(isa);
  }
  return all;
}

// An instruction set in force while it lives.
class Forced {
public:
  explicit Forced(simd::Isa isa) : before_(simd::active_isa()) { simd::force_isa(isa); }
  ~Forced() { simd::force_isa(before_); }

private:
  simd::Isa before_;
};

// A record over prime fields with its work memory; `make` builds it in the storage it is given.
template <class Parameters> class RecordOf {
public:
  template <class Make> explicit RecordOf(const Make& make) : record_(make(&storage_)) {
    scratch_ = std::make_unique<Buffer>(record_->scratch_bytes());
  }
  const Parameters& operator*() const { return *record_; }
  const Parameters* operator->() const { return record_; }
  void* scratch() const { return scratch_->data(); }

  std::unique_ptr<Buffer> transform(const Words& a, bool once = false) const {
    auto T = std::make_unique<Buffer>(record_->transform_bytes());
    if (once)
      record_->forward_once(T->data(), a.data(), a.size(), scratch());
    else
      record_->forward(T->data(), a.data(), a.size(), scratch());
    return T;
  }
  Words product(const Words& a, const Words& b) const {
    const Buffer TA(record_->transform_bytes()), TB(record_->second_bytes());
    Words out(a.size() + b.size());
    record_->product(out.data(), a.data(), a.size(), b.data(), b.size(), TA.data(), TB.data(), scratch());
    return out;
  }
  Words square(const Words& a) const {
    const Buffer TA(record_->transform_bytes());
    Words out(2 * a.size());
    record_->product(out.data(), a.data(), a.size(), nullptr, 0, TA.data(), nullptr, scratch());
    return out;
  }

private:
  km_MULv3::btp_storage storage_;
  Parameters* record_;
  std::unique_ptr<Buffer> scratch_;
};

inline km_MULv3::Context record_context(u64 threads, bool reduced) {
  km_MULv3::Context context;
  context.threads = threads;
  context.reduced_memory = reduced;
  return context;
}

class Record : public RecordOf<km_HNT::kmb_HNT_tp> {
public:
  Record(u64 n, u64 threads, bool reduced = false)
      : RecordOf([&](km_MULv3::btp_storage* storage) {
          return km_HNT::make_parameters(n, record_context(threads, reduced), storage);
        }) {}
};

} // namespace kelvane::test
