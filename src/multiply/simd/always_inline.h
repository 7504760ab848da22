// Functions on vectors must be inlined: their arrays of vectors live in registers only then, and the
// compiler's own estimate gives up on the larger butterflies.
#pragma once

#define KELVANE_INLINE [[gnu::always_inline]] inline

// For large kernels, which a sanitizer's checks would make so long that they compile for minutes.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KELVANE_INLINE_LARGE inline
#else
#define KELVANE_INLINE_LARGE KELVANE_INLINE
#endif
