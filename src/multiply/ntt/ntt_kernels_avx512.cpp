// The transform's kernels on eight doubles.
#include "multiply/ntt/lanes_avx512.h"

#include "multiply/ntt/columns_impl.h"

namespace kelvane::ntt::avx512 {
const Kernels KERNELS = make_kernels<Double<Lanes8>>("avx512");
} // namespace kelvane::ntt::avx512
