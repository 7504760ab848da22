// The transform's kernels on eight 52-bit integers.
#include "multiply/ntt/backend_ifma.h"

#include "multiply/ntt/recombine_ifma_impl.h"

#include "multiply/ntt/columns_impl.h"

namespace kelvane::ntt::avx512ifma {
const Kernels KERNELS = make_kernels<Ifma>("avx512ifma");
} // namespace kelvane::ntt::avx512ifma
