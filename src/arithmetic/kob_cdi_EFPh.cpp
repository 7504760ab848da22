#include "arithmetic/kob_cdi_EFPh.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <typeinfo>

#include "arithmetic/hashed_integer.h"
#include "arithmetic/words/add.h"
#include "arithmetic/words/residue.h"
#include "shell/console.h"
#include "shell/exception.h"

namespace kelvane {

namespace {

void copy(u64* to, const u64* from, u64 n) {
  if (n != 0) std::memcpy(to, from, n * sizeof(u64));
}

[[noreturn]] void insufficient_space(u64 needed, u64 allocated, const char* operation) {
  Console::print_u64(needed);
  Console::print("  ");
  Console::print_u64(allocated);
  Console::print("\n");
  Console::print(operation);
  fatal("Insufficient Allocated Space");
}

void require_space(u64 needed, u64 allocated, const char* operation) {
  if (needed > allocated) insufficient_space(needed, allocated, operation);
}

// Whether the two may be combined.
bool accepted(const kob_cdi_EFPh::Transform& TA, const kob_cdi_EFPh::Transform& TB) {
  const auto &pa = *TA.parameters, &pb = *TB.parameters;
  return &pa == &pb || (typeid(pa) == typeid(pb) && pa.accepts(pb));
}

// The checks that every product from transforms begins with; returns the length of the result.
u64 check_product(const kob_cdi_EFPh::Transform& TA, const kob_cdi_EFPh::Transform& TB, u64 AL,
                  const std::string& operation) {
  if (!accepted(TA, TB)) fatal((operation + ": Mismatching Transform Parameters").c_str());
  const u64 n = TA.L + TB.L;
  if (64 * n > TA.parameters->capacity_bits()) fatal((operation + ": Truncated Range\n\n").c_str());
  require_space(n, AL, operation.c_str());
  return n;
}

} // namespace

void kob_cdi_EFPh::Transform::describe(const km_MULv3::abstract_btp& p, void* storage,
                                       const kob_cdi_EFPh& x) {
  parameters = &p;
  data = storage;
  L = x.L;
  exp = x.exp;
  hash = x.hash;
}

void kob_cdi_EFPh::Transform::forward(const km_MULv3::abstract_btp& p, void* storage, const kob_cdi_EFPh& x,
                                      void* scratch) {
  describe(p, storage, x);
  weight = p.forward(storage, x.T, x.L, scratch);
}

void kob_cdi_EFPh::Transform::forward_once(const km_MULv3::abstract_btp& p, void* storage,
                                           const kob_cdi_EFPh& x, void* scratch) {
  describe(p, storage, x);
  weight = p.forward_once(storage, x.T, x.L, scratch);
}

void kob_cdi_EFPh::attach(u64* words, u64 allocated) {
  T = buffer = words;
  AL = allocated;
  L = 0;
  exp = 0;
  hash = 0;
}

u64 kob_cdi_EFPh::hash_of_words() const {
  return L == 0 ? 0 : residue::mul(residue::hash_words(T, L), residue::weight(exp));
}

void kob_cdi_EFPh::set_words(const u64* x, u64 n) {
  require_space(n, AL, "kob_cdi_EFPh::set_words()");
  T = buffer;
  exp = 0;
  L = n;
  copy(T, x, n);
  finish_words();
}

void kob_cdi_EFPh::finish_words() {
  L = words::normalized_length(T, L);
  hash = hash_of_words();
}

void kob_cdi_EFPh::set_copy(const kob_cdi_EFPh& B) {
  require_space(B.L, AL, "kob_cdi_EFPh::set_copy()");
  T = buffer;
  copy(T, B.T, B.L);
  exp = B.exp;
  L = B.L;
  hash = B.hash;
}

void kob_cdi_EFPh::set_add(const kob_cdi_EFPh& A, const kob_cdi_EFPh& B) {
  if (A.mag() < B.mag()) return set_add(B, A);
  T = buffer;
  const s64 low = std::min(A.exp, B.exp);
  const u64 span = static_cast<u64>(A.mag() - low);
  require_space(span + 1, AL, "kob_cdi_EFPh::set_add()");
  exp = low;
  L = span;
  hash = residue::add(A.hash, B.hash);

  if (A.exp > B.mag()) { // no overlap: A above a gap of zeros above B
    const u64 gap = static_cast<u64>(A.exp - B.mag());
    copy(T, B.T, B.L);
    std::fill_n(T + B.L, gap, u64{0});
    copy(T + B.L + gap, A.T, A.L);
    return;
  }
  // Words below both overlap ends come from the lower number, the overlap is added, the rest is A's.
  const bool b_lower = A.exp > B.exp;
  const u64 below = static_cast<u64>(b_lower ? A.exp - B.exp : B.exp - A.exp);
  const u64* a = b_lower ? A.T : A.T + below;
  const u64* b = b_lower ? B.T + below : B.T;
  const u64 overlap = static_cast<u64>(B.mag() - std::max(A.exp, B.exp));
  copy(T, b_lower ? B.T : A.T, below);
  const u64 carry = words::add(T + below, a, b, overlap);
  copy(T + below + overlap, a + overlap, span - below - overlap);
  T[span] = words::add_word(T + below + overlap, span - below - overlap, carry);
  L += T[span] != 0;
}

void kob_cdi_EFPh::drop_low_words(u64 n) {
  hash = residue::sub(hash, residue::mul(residue::hash_words(T, n), residue::weight(exp)));
  T += n;
  L -= n;
  exp += static_cast<s64>(n);
}

void kob_cdi_EFPh::truncate(u64 n) {
  if (L > n) drop_low_words(L - n);
}

void kob_cdi_EFPh::add_in_place(const kob_cdi_EFPh& B) {
  kob_cdi_EFPh b = B;
  if (b.exp < exp) b.drop_low_words(std::min(b.L, static_cast<u64>(exp - b.exp)));
  if (b.L == 0) return;
  if (b.mag() > mag() || room() == 0)
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"kob_cdi_EFPh::add_in_place()", L"Operand lengths do not fit.");
  T[L] = 0;
  words::add_propagate(T + (b.exp - exp), b.T, b.L);
  L += T[L] != 0;
  hash = residue::add(hash, b.hash);
}

void kob_cdi_EFPh::sub_in_place(const kob_cdi_EFPh& B) {
  kob_cdi_EFPh b = B;
  if (b.exp < exp) b.drop_low_words(std::min(b.L, static_cast<u64>(exp - b.exp)));
  if (b.L == 0) return;
  if (b.mag() > mag() || room() == 0)
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"kob_cdi_EFPh::sub_in_place()", L"Operand lengths do not fit.");
  T[L] = 1; // guard: a borrow that reaches it means a negative difference
  words::sub_propagate(T + (b.exp - exp), b.T, b.L);
  if (T[L] != 1)
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"kob_cdi_EFPh::sub_in_place()", L"The difference is negative.");
  L = words::normalized_length(T, L);
  if (L == 0)
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"kob_cdi_EFPh::sub_in_place()", L"The difference is zero.");
  hash = residue::sub(hash, b.hash);
}

void kob_cdi_EFPh::reverse_sub_in_place(const kob_cdi_EFPh& B) {
  if (B.exp != exp || B.L < L || L + room() < B.L)
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"kob_cdi_EFPh::reverse_sub_in_place()",
                L"Operands do not fit.");
  std::fill(T + L, T + B.L, u64{0});
  if (words::sub(T, B.T, T, B.L) != 0)
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"kob_cdi_EFPh::reverse_sub_in_place()",
                L"The difference is negative.");
  L = words::normalized_length(T, B.L);
  hash = residue::sub(B.hash, hash);
}

void kob_cdi_EFPh::set_add_kept(const kob_cdi_EFPh& A, const kob_cdi_EFPh& B, u64 keep) {
  if (A.mag() < B.mag()) return set_add_kept(B, A, keep);
  kob_cdi_EFPh a = A, b = B;
  if (keep < a.L) a.truncate(keep + 1);
  if (const u64 below = static_cast<u64>(A.mag() - B.mag()); below > keep)
    b.truncate(0);
  else if (b.L > keep - below)
    b.truncate(keep - below + 1);
  if (b.L == 0) return set_copy(a);
  set_add(a, b);
}

void kob_cdi_EFPh::set_shifted(const kob_cdi_EFPh& B, u64 bits, u64 keep) {
  kob_cdi_EFPh b = B;
  if (keep < b.L) b.truncate(keep + 1);
  const u64 shift = bits / 64, zeros = std::min(shift, keep < b.L ? 0 : keep - b.L + 1);
  require_space(zeros + b.L + 1, AL, "kob_cdi_EFPh::set_shifted()");
  T = buffer;
  std::fill_n(T, zeros, u64{0});
  copy(T + zeros, b.T, b.L);
  L = zeros + b.L;
  exp = b.exp - static_cast<s64>(zeros);
  hash = b.hash;
  shift_left_in_place(bits);
}

void kob_cdi_EFPh::shift_left_in_place(u64 bits) {
  if (const u64 part = bits % 64; part != 0) mul_word_in_place(u64{1} << part);
  const s64 whole = static_cast<s64>(bits / 64);
  exp += whole;
  hash = residue::mul(hash, residue::weight(whole));
}

void kob_cdi_EFPh::mul_word_in_place(u64 w) {
  if (room() == 0)
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"kob_cdi_EFPh::mul_word_in_place()", L"AL is too small.");
  T[L] = words::mul_word(T, T, L, w);
  L += T[L] != 0;
  hash = residue::mul(hash, residue::reduce(w));
}

void kob_cdi_EFPh::set_inverse_fmul(const Transform& TA, const Transform& TB, void* scratch) {
  const u64 n = check_product(TA, TB, AL, "kob_cdi_EFPh::set_inverse_fmul()");
  T = buffer;
  hash = residue::mul(TA.hash, TB.hash);
  const km_MULv3::Term term{TA.data, TB.data, false, TA.weight * TB.weight};
  TA.parameters->inverse_sum(T, n, &term, 1, scratch);
  exp = TA.exp + TB.exp;
  L = n - (T[n - 1] == 0);
}

void kob_cdi_EFPh::set_inverse_fsqr(const Transform& TA, void* scratch) {
  const u64 n = check_product(TA, TA, AL, "kob_cdi_EFPh::set_inverse_fsqr()");
  T = buffer;
  hash = residue::mul(TA.hash, TA.hash);
  TA.parameters->inverse_fsqr(T, n, TA.data, scratch);
  exp = 2 * TA.exp;
  L = n - (T[n - 1] == 0);
}

bool kob_cdi_EFPh::may_add(const Transform& TA, const Transform& TB, const Transform& TC,
                           const Transform& TD) {
  return TA.parameters->may_add(TA.weight * TB.weight + TC.weight * TD.weight);
}

void kob_cdi_EFPh::set_inverse_fmul_ext(const Transform& TA, const Transform& TB, const Transform& TC,
                                        const Transform& TD, bool subtract, void* scratch) {
  const char* const name = "kob_cdi_EFPh::set_inverse_fmul_ext()";
  const u64 first = check_product(TA, TB, AL, name), second = check_product(TC, TD, AL, name);
  if (!accepted(TA, TC)) fatal((std::string(name) + ": Mismatching Transform Parameters").c_str());
  if (!may_add(TA, TB, TC, TD))
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"kob_cdi_EFPh::set_inverse_fmul_ext()",
                L"The products can not be added.");
  if (TA.exp + TB.exp != TC.exp + TD.exp)
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"kob_cdi_EFPh::set_inverse_fmul_ext()", L"Exponents differ.");
  // One word more, where there is room, for the carry of the sum.
  u64 n = std::max(first, second);
  if (n < AL && 64 * (n + 1) <= TA.parameters->capacity_bits()) n++;
  T = buffer;
  const u64 a = residue::mul(TA.hash, TB.hash), b = residue::mul(TC.hash, TD.hash);
  hash = subtract ? residue::sub(a, b) : residue::add(a, b);
  const km_MULv3::Term terms[] = {{TA.data, TB.data, false, TA.weight * TB.weight},
                                  {TC.data, TD.data, subtract, TC.weight * TD.weight}};
  TA.parameters->inverse_sum(T, n, terms, 2, scratch);
  exp = TA.exp + TB.exp;
  L = words::normalized_length(T, n);
}

void kob_cdi_EFPh::set_product(const km_MULv3::Context& context, const kob_cdi_EFPh& A, const kob_cdi_EFPh& B,
                               void* work) {
  const u64 n = A.L + B.L;
  require_space(n, AL, "kob_cdi_EFPh::set_product()");
  T = buffer;
  hash = residue::mul(A.hash, B.hash);
  km_MULv3::multiply(context, T, A.T, A.L, B.T, B.L, work);
  exp = A.exp + B.exp;
  L = n - (T[n - 1] == 0);
}

void kob_cdi_EFPh::set_product_over(const km_MULv3::Context& context, const kob_cdi_EFPh& A,
                                    const kob_cdi_EFPh& B, void* work) {
  const u64 n = A.L + B.L;
  require_space(n, AL, "kob_cdi_EFPh::set_product_over()");
  const u64 product_hash = residue::mul(A.hash, B.hash);
  const s64 product_exp = A.exp + B.exp;
  T = buffer;
  km_MULv3::multiply_over(context, T, A.T, A.L, B.T, B.L, work);
  hash = product_hash;
  exp = product_exp;
  L = n - (T[n - 1] == 0);
}

void kob_cdi_EFPh::dump() const {
  Console::print("exp =  ");
  Console::print_s64(exp);
  Console::print("\nL =    ");
  Console::print_u64(L);
  Console::print("\nAL =   ");
  Console::print_u64(AL);
  Console::print("\nhash = ");
  Console::print_u64(hash);
  Console::print("\n");
  const u64 shown = L < 200 ? L : 10;
  dump_words(T + (L - shown), shown);
}

} // namespace kelvane
