#include "multiply/fft/km_FFTv2.h"
#include "multiply/hnt/km_HNT.h"

namespace kelvane::km_HNT {

template <class W> u64 algorithm<W>::memory_cost(u64 n, u64 threads) const {
  return km_FFTv2::algorithm<W>().memory_cost(n, threads);
}
template <class W>
km_MULv3::abstract_btp* algorithm<W>::make_parameters(u64 n, const km_MULv3::Context& context,
                                                      km_MULv3::btp_storage* storage) const {
  return km_FFTv2::algorithm<W>().make_parameters(n, context, storage);
}

template class algorithm<u32>;
template class algorithm<u64>;

} // namespace kelvane::km_HNT
