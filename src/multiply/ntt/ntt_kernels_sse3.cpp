// The transform's kernels in general registers.
#include "multiply/ntt/backend_integer.h"

#include "multiply/ntt/columns_impl.h"

namespace kelvane::ntt::sse3 {
const Kernels KERNELS = make_kernels<Integer>("sse3");
} // namespace kelvane::ntt::sse3
