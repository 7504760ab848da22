// Functions on vectors must be inlined: their arrays of vectors live in registers only then, and the
// compiler's own estimate gives up on the larger butterflies.
#pragma once

#define KELVANE_INLINE [[gnu::always_inline]] inline
