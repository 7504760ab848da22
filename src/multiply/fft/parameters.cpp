#include <new>

#include "multiply/fft/km_FFTv2.h"
#include "shell/exception.h"

namespace kelvane::km_FFTv2 {

namespace {
// A product of n words of W in 64-bit words.
template <class W> u64 words64(u64 n) {
  return sizeof(W) == 8 ? n : n / 2 + n % 2;
}
} // namespace

u64 memory_cost(u64 n, u64) {
  if (n > MAX_BITS / 64) throw km_exception(ERROR_BEYOND_TABLE, "");
  return 20 * plan_points(64 * n);
}

template <class W> u64 algorithm<W>::memory_cost(u64 n, u64 threads) const {
  return km_FFTv2::memory_cost(words64<W>(n), threads);
}

template <class W>
km_MULv3::abstract_btp* algorithm<W>::make_parameters(u64 n, const km_MULv3::Context& context,
                                                      km_MULv3::btp_storage* storage) const {
  if (storage == nullptr) return nullptr;
  static_assert(sizeof(btp_t) <= sizeof(km_MULv3::btp_storage));
  const u64 words = words64<W>(n);
  if (words > MAX_BITS / 64) throw km_exception(ERROR_BEYOND_TABLE, "");
  return new (storage->bytes) btp_t(64 * words, context);
}

template class algorithm<u32>;
template class algorithm<u64>;

} // namespace kelvane::km_FFTv2
