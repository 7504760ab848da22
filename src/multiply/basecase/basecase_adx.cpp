// Schoolbook products with mulx, adcx and adox. The rows have fixed lengths, unrolled.
#include "multiply/basecase/basecase.h"
#include "multiply/basecase/rows_adx.h"

namespace kelvane::km_MULB {

namespace {

// Rows of any length: eight words at a time, then the rest.
constexpr u32 BLOCK = 8;

template <u32 N> u64 row_call(u64* R, const u64* A, u64 x, u64 c) {
  return row<N>(R, A, x, c);
}
template <u32 N> u64 add_row_call(u64* R, const u64* A, u64 x, u64 c) {
  return add_row<N>(R, A, x, c);
}
using Row = u64 (*)(u64* R, const u64* A, u64 x, u64 c);
constexpr Row ROWS[BLOCK] = {nullptr,     row_call<1>, row_call<2>, row_call<3>,
                             row_call<4>, row_call<5>, row_call<6>, row_call<7>};
constexpr Row ADD_ROWS[BLOCK] = {nullptr,         add_row_call<1>, add_row_call<2>, add_row_call<3>,
                                 add_row_call<4>, add_row_call<5>, add_row_call<6>, add_row_call<7>};

u64 any_row(u64* R, const u64* A, u64 n, u64 x) {
  u64 c = 0;
  for (; n >= BLOCK; n -= BLOCK, R += BLOCK, A += BLOCK) c = row<BLOCK>(R, A, x, c);
  return n == 0 ? c : ROWS[n](R, A, x, c);
}
u64 add_any_row(u64* R, const u64* A, u64 n, u64 x) {
  u64 c = 0;
  for (; n >= BLOCK; n -= BLOCK, R += BLOCK, A += BLOCK) c = add_row<BLOCK>(R, A, x, c);
  return n == 0 ? c : ADD_ROWS[n](R, A, x, c);
}

// All rows of one fixed length.
template <u32 N> KELVANE_INLINE void product_in_memory(u64* out, const u64* A, const u64* B, u64 nb) {
  out[N] = row<N>(out, A, B[0], 0);
  for (u64 j = 1; j < nb; j++) out[N + j] = add_row<N>(out + j, A, B[j], 0);
}

// r[0, N) <- r + A times ROWS words of B, of which the lowest ROWS words go to out and the others move down.
template <u32 N, u32 ROWS> KELVANE_INLINE void register_rows(u64* out, u64* r, const u64* A, const u64* B) {
  u64 s[N + ROWS];
  for (u32 i = 0; i < N; i++) s[i] = r[i];
#pragma GCC unroll 8
  for (u32 j = 0; j < ROWS; j++) {
    add_register_row<N, 0>(s + j, A, B[j]);
    store_word(out + j, s[j]);
  }
  for (u32 i = 0; i < N; i++) r[i] = s[ROWS + i];
}

// The sum of short rows never leaves the registers.
template <u32 N> KELVANE_INLINE void product_in_registers(u64* out, const u64* A, const u64* B, u64 nb) {
  u64 r[N + 1];
  first_register_row<N, 0>(r, A, B[0]);
  store_word(out, r[0]);
  u64* const s = r + 1;
  out++, B++, nb--;
  constexpr u32 BLOCK_ROWS = N - 1;
  for (; nb >= BLOCK_ROWS; nb -= BLOCK_ROWS, B += BLOCK_ROWS, out += BLOCK_ROWS)
    register_rows<N, BLOCK_ROWS>(out, s, A, B);
  for (; nb > 0; nb--, B++, out++) register_rows<N, 1>(out, s, A, B);
  for (u32 i = 0; i < N; i++) store_word(out + i, s[i]);
}

// The longest rows whose sum and the pointers to it have room in the registers.
constexpr u32 MAX_REGISTER_PRODUCT = 9;

template <u32 N> void product(u64* out, const u64* A, u64, const u64* B, u64 nb) {
  if constexpr (N >= 4 && N <= MAX_REGISTER_PRODUCT)
    product_in_registers<N>(out, A, B, nb);
  else
    product_in_memory<N>(out, A, B, nb);
}

void product_by_blocks(u64* out, const u64* A, u64 na, const u64* B, u64 nb) {
  out[na] = any_row(out, A, na, B[0]);
  for (u64 j = 1; j < nb; j++) out[na + j] = add_any_row(out + j, A, na, B[j]);
}

} // namespace

constinit const Products ADX_PRODUCTS{{product_by_blocks, product<1>, product<2>, product<3>, product<4>,
                                       product<5>, product<6>, product<7>, product<8>, product<9>,
                                       product<10>, product<11>, product<12>}};

} // namespace kelvane::km_MULB
