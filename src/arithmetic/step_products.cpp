#include "arithmetic/step_products.h"

#include <algorithm>

#include "arithmetic/redundancy.h"
#include "arithmetic/words/add.h"
#include "arithmetic/words/residue.h"
#include "shell/heap.h"

namespace kelvane {

namespace {

using km_MULv3::LONGEST_FFT;

// The record that serves the product modulo M and the kept factor's products; null for short ones.
const km_MULv3::abstract_ntp* make_record(const StepProducts::Needs& needs, const km_MULv3::Context& context,
                                          km_MULv3::btp_storage* storage) {
  if (needs.full <= LONGEST_FFT) return nullptr;
  const u64 n = std::max({needs.wrapped, needs.keep ? needs.whole : 0, LONGEST_FFT + 1});
  const km_MULv3::abstract_ntp* const record = km_MULv3::select_wrapped(n, context, storage);
  return record->wrap_words() % residue::WRAPPED_PERIOD == 0 ? record : nullptr; // else no check is known
}

} // namespace

// The result, then either the transforms or one product formed apart.
struct StepProducts::Placement {
  u64* out;
  void *TX = nullptr, *TA = nullptr, *TB = nullptr, *scratch = nullptr, *work = nullptr;

  Placement(Layout& layout, const Needs& needs, const km_MULv3::abstract_ntp* record,
            const km_MULv3::Context& context)
      : out(layout.take<u64>(
            std::max(needs.whole, record == nullptr ? needs.full + 1 : record->wrap_words()))) {
    Layout transforms = layout, apart = layout;
    if (record != nullptr) {
      if (needs.keep) TX = transforms.take_bytes(record->transform_bytes());
      TA = transforms.take_bytes(record->transform_bytes());
      if (needs.pair) TB = transforms.take_bytes(record->transform_bytes());
      scratch = transforms.take_bytes(record->scratch_bytes());
    }
    if (record == nullptr || !needs.keep) {
      const u64 n = record == nullptr ? std::max(needs.whole, needs.full) : needs.whole;
      work = apart.take_bytes(km_MULv3::memory_cost(n, context.threads, context.reduced_memory));
    }
    layout.take_bytes(std::max(transforms.used(), apart.used()) - layout.used());
  }
};

u64 StepProducts::work_bytes(const Needs& needs, const km_MULv3::Context& context) {
  km_MULv3::btp_storage storage;
  Layout layout;
  Placement(layout, needs, make_record(needs, context, &storage), context);
  return layout.used();
}

StepProducts::StepProducts(const km_MULv3::Context& context, const Needs& needs, void* work)
    : context_(context), record_(make_record(needs, context, &storage_)),
      m_(record_ == nullptr ? needs.full + 1 : record_->wrap_words()) {
  Layout layout(work, work_bytes(needs, context));
  const Placement at(layout, needs, record_, context);
  out_ = at.out;
  TX_ = at.TX, TA_ = at.TA, TB_ = at.TB, scratch_ = at.scratch;
  work_ = at.work;
}

void StepProducts::keep(Factor x) {
  kept_ = x;
  kept_hash_ = residue::hash_words(x.words, x.n);
  if (TX_ != nullptr) record_->forward(TX_, x.words, x.n, scratch_);
}

u64* StepProducts::whole(Factor a) {
  const u64 n = a.n + kept_.n;
  if (TX_ == nullptr) {
    km_MULv3::multiply(context_, out_, a.words, a.n, kept_.words, kept_.n, work_);
  } else {
    record_->forward_once(TA_, a.words, a.n, scratch_);
    record_->inverse_fmul(out_, n, TA_, TX_, scratch_);
  }
  check_product_residue(residue::hash_words(a.words, a.n), kept_hash_, out_, n);
  return out_;
}

u64* StepProducts::wrapped(Factor a) {
  if (TX_ == nullptr) return wrapped(a, kept_);
  record_->forward_once(TA_, a.words, a.n, scratch_);
  return finish_wrapped(a, kept_, TA_, TX_);
}

u64* StepProducts::wrapped(Factor a, Factor b) {
  if (record_ == nullptr) { // the product itself, with zeros above
    const u64 n = a.n + b.n;
    km_MULv3::multiply(context_, out_, a.words, a.n, b.words, b.n, work_);
    check_product_residue(residue::hash_words(a.words, a.n), residue::hash_words(b.words, b.n), out_, n);
    std::fill(out_ + n, out_ + m_, u64{0});
    return out_;
  }
  const bool square = a.words == b.words && a.n == b.n;
  record_->forward_once(TA_, a.words, a.n, scratch_);
  if (!square) record_->forward_once(TB_, b.words, b.n, scratch_);
  return finish_wrapped(a, b, TA_, square ? TA_ : TB_);
}

u64* StepProducts::finish_wrapped(Factor a, Factor b, void* TA, const void* TB) {
  const km_MULv3::Term term{TA, TB};
  record_->inverse_wrapped(out_, &term, 1, scratch_);
  const u64 hash_a = residue::hash_wrapped(a.words, a.n);
  check_wrapped_residue(hash_a, TA == TB ? hash_a : residue::hash_wrapped(b.words, b.n), out_, m_);
  return out_;
}

namespace newton {

namespace {

// w += 1 and w -= 1 modulo M: what leaves the top comes in again at the bottom, since 2^(64 m) = 1.
void add_one_modulo(u64* w, u64 m) {
  while (words::add_word(w, m, 1) != 0) {
  }
}
void sub_one_modulo(u64* w, u64 m) {
  while (words::sub_word(w, m, 1) != 0) {
  }
}

} // namespace

bool subtract_modulo(u64* w, u64 m, const u64* N, u64 n, u64 at) {
  for (at %= m; n > 0; at = 0) { // N goes round as often as it must
    const u64 part = std::min(n, m - at), end = at + part;
    if (words::sub_word(w + end, m - end, words::sub_in_place(w + at, N, part)) != 0) sub_one_modulo(w, m);
    N += part;
    n -= part;
  }
  return (w[m - 1] >> 63) != 0;
}

u64 magnitude_length(const u64* w, u64 m, bool negative) {
  const u64 zero = negative ? ~u64{0} : 0;
  while (m > 0 && w[m - 1] == zero) m--;
  return m;
}

void copy_magnitude(u64* out, const u64* w, u64 n, bool negative) {
  if (negative)
    words::complement(out, w, n);
  else
    std::copy_n(w, n, out);
}

void multiply_modulo(u64* w, u64 m, u64 x) {
  const u64 carry = words::mul_word(w, w, m, x);
  if (words::add_word(w, m, carry) != 0) add_one_modulo(w, m);
}

} // namespace newton

} // namespace kelvane
