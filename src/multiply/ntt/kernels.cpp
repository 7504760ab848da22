#include "multiply/ntt/kernels.h"

namespace kelvane::ntt {

const Kernels& kernels_of(Backend backend) {
  switch (backend) {
  case Backend::ifma:
    return avx512ifma::KERNELS;
  case Backend::double8:
    return avx512::KERNELS;
  case Backend::double4:
    return avx2::KERNELS;
  case Backend::integer1:
    break;
  }
  return sse3::KERNELS;
}

Backend backend_of(simd::Isa isa) {
  switch (isa) {
  case simd::Isa::avx512ifma:
    return Backend::ifma;
  case simd::Isa::avx512:
    return Backend::double8;
  case simd::Isa::avx2:
    return Backend::double4;
  case simd::Isa::sse3:
    break;
  }
  return Backend::integer1;
}

} // namespace kelvane::ntt
