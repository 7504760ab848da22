// The transform's kernels on four doubles.
#include "multiply/ntt/lanes_avx2.h"

#include "multiply/ntt/columns_impl.h"

namespace kelvane::ntt::avx2 {
const Kernels KERNELS = make_kernels<Double<Lanes4>>("avx2");
} // namespace kelvane::ntt::avx2
