#include <cstring>
#include <new>

#include "multiply/basecase/km_MULB.h"

namespace kelvane::km_MULB {

namespace {

constexpr u64 HEADER_BYTES = 64; // keeps the operand 64-byte aligned

constexpr u64 round_up(u64 x, u64 unit) {
  return (x + unit - 1) / unit * unit;
}

u64 length_of(const void* T) {
  u64 length;
  std::memcpy(&length, T, sizeof length);
  return length;
}
template <class W> W* operand(void* T) {
  return reinterpret_cast<W*>(static_cast<u8*>(T) + HEADER_BYTES);
}
template <class W> const W* operand(const void* T) {
  return reinterpret_cast<const W*>(static_cast<const u8*>(T) + HEADER_BYTES);
}

// Scratch for any two lengths of the sum n. Lengths n1 > n2 > n3 ... of the last shorter blocks are the
// remainders of Euclid's algorithm, each at most the difference of the two before it: their sum is at most n,
// and the balanced products below them take at most scratch_words(n/2).
template <class W> u64 scratch_bound(u64 n) {
  return 2 * n + scratch_words<W>(n / 2);
}

} // namespace

btp_t::btp_t(u64 capacity_bits, u64 threads, unsigned word_bits)
    : max_words_(capacity_bits / 64), word_bits_(word_bits) {
  capacity_bits_ = capacity_bits;
  threads_ = threads;
}

u64 btp_t::transform_bytes() const {
  return HEADER_BYTES + round_up(8 * max_words_, 64);
}

// The product is formed in scratch for 32-bit words, whose arrays the caller does not have.
u64 btp_t::scratch_bytes() const {
  if (word_bits_ == 64) return round_up(8 * scratch_bound<u64>(max_words_), 64);
  return round_up(8 * max_words_ + 4 * scratch_bound<u32>(2 * max_words_), 64);
}

bool btp_t::accepts(const km_MULv3::abstract_btp& other) const {
  const auto* o = dynamic_cast<const btp_t*>(&other);
  return o != nullptr && o->word_bits_ == word_bits_;
}

double btp_t::forward(void* T, const u64* A, u64 L, void*) const {
  std::memcpy(T, &L, sizeof L);
  std::memcpy(static_cast<u8*>(T) + HEADER_BYTES, A, 8 * L);
  return km_MULv3::NO_WEIGHT;
}

void btp_t::inverse_fmul(u64* out, u64 n, void* TA, const void* TB, void* scratch) const {
  const u64 na = length_of(TA), nb = length_of(TB);
  std::memset(out, 0, 8 * n);
  if (na == 0 || nb == 0) return;
  if (word_bits_ == 64) {
    auto* const work = static_cast<u64*>(scratch);
    if (TA == TB) {
      square(out, operand<u64>(TA), na, work);
    } else {
      multiply_unbalanced(out, operand<u64>(TA), na, operand<u64>(TB), nb, work);
    }
    return;
  }
  auto* const product = static_cast<u32*>(scratch);
  u32* const work = product + 2 * (na + nb);
  if (TA == TB) {
    square(product, operand<u32>(TA), 2 * na, work);
  } else {
    multiply_unbalanced(product, operand<u32>(TA), 2 * na, operand<u32>(TB), 2 * nb, work);
  }
  std::memcpy(out, product, 8 * (na + nb));
}

void btp_t::inverse_fsqr(u64* out, u64 n, void* T, void* scratch) const {
  inverse_fmul(out, n, T, T, scratch);
}

namespace {
// A product of n words of W, in whole 64-bit words.
template <class W> btp_t parameters(u64 n, u64 threads) {
  return btp_t(round_up(n * 8 * sizeof(W), 64), threads, 8 * sizeof(W));
}
} // namespace

template <class W> u64 algorithm<W>::memory_cost(u64 n, u64 threads) const {
  const btp_t p = parameters<W>(n, threads);
  return 2 * p.transform_bytes() + p.scratch_bytes();
}

template <class W>
km_MULv3::abstract_btp* algorithm<W>::make_parameters(u64 n, const km_MULv3::Context& context,
                                                      km_MULv3::btp_storage* storage) const {
  if (storage == nullptr) return nullptr;
  static_assert(sizeof(btp_t) <= sizeof(km_MULv3::btp_storage));
  return new (storage->bytes) btp_t(parameters<W>(n, context.threads));
}

template class algorithm<u32>;
template class algorithm<u64>;

} // namespace kelvane::km_MULB
