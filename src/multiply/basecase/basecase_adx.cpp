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
template <u32 N> void product(u64* out, const u64* A, u64, const u64* B, u64 nb) {
  out[N] = row<N>(out, A, B[0], 0);
  for (u64 j = 1; j < nb; j++) out[N + j] = add_row<N>(out + j, A, B[j], 0);
}

// The shortest products of the recursion: 4 words each, the sum never leaves the registers.
template <> void product<4>(u64* out, const u64* A, u64, const u64* B, u64 nb) {
  u64 r0 = 0, r1 = 0, r2 = 0, r3 = 0;
  for (; nb >= 4; nb -= 4, B += 4, out += 4) {
    u64 r[8] = {r0, r1, r2, r3};
    add_register_row<4>(r, A, B[0]);
    add_register_row<4>(r + 1, A, B[1]);
    add_register_row<4>(r + 2, A, B[2]);
    add_register_row<4>(r + 3, A, B[3]);
    out[0] = r[0];
    out[1] = r[1];
    out[2] = r[2];
    out[3] = r[3];
    r0 = r[4];
    r1 = r[5];
    r2 = r[6];
    r3 = r[7];
  }
  for (; nb > 0; nb--, B++, out++) {
    u64 r[5] = {r0, r1, r2, r3};
    add_register_row<4>(r, A, *B);
    *out = r[0];
    r0 = r[1];
    r1 = r[2];
    r2 = r[3];
    r3 = r[4];
  }
  out[0] = r0;
  out[1] = r1;
  out[2] = r2;
  out[3] = r3;
}

void any_product(u64* out, const u64* A, u64 na, const u64* B, u64 nb) {
  out[na] = any_row(out, A, na, B[0]);
  for (u64 j = 1; j < nb; j++) out[na + j] = add_any_row(out + j, A, na, B[j]);
}

} // namespace

constinit const Products ADX_PRODUCTS{{any_product, product<1>, product<2>, product<3>, product<4>,
                                       product<5>, product<6>, product<7>, product<8>, product<9>,
                                       product<10>, product<11>, product<12>}};

} // namespace kelvane::km_MULB
