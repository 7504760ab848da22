// The verification: the residue of floor(f R^W) from the binary side. See radix.h.
//
// P = R^W is raised bit by bit of W with its zero words at the bottom stripped and counted:
// P = P' 2^(64 z). With f = F / 2^(64 n) the integer part I is defined by
//
//   F P = I 2^(64 n) + rest,  0 <= rest < 2^(64 n),
//
// so that, modulo p = 2^61 - 1,  I = (F P - rest) 2^(-64 n), and F P needs only residues. What must
// be multiplied out is the rest:  rest = 2^(64 z) ((F P') mod 2^(64 (n - z))), to which only the low
// n - z words of both factors contribute. For n fitting W these are 0.7 W words each, instead of the
// whole product's W + 0.7 W. Nothing is truncated: the residue is that of I itself, and the digits,
// which are I or I - 1, differ from it by at most 1.
//
// Nor is that product formed whole when it is long. Let L = n - z, F' and P' the low L words of the factors,
// F' P' = H 2^(64 L) + D with D the rest wanted (up to 2^(64 z)), and M = 2^(64 m) - 1 with m = L + s, s >=
// 0. The product 2^(64 s) F' P' modulo M is
//
//   V = H + 2^(64 s) D, less M if that exceeds M;
//
// its residue v, and h, that of 2^(64 s) F' P' = 2^(64 m) H + 2^(64 s) D, are two equations for those of H
// and D modulo p: 2^(64 s) D = v - (h - v) / (2^(64 m) - 1). They can be solved unless 61 divides m. Since H
// < P', M can have been taken off only where the words of V above those of P' are all zero; then, and for
// short numbers, the product is formed whole. V itself is checked modulo a divisor of M.

#include <algorithm>
#include <bit>
#include <string>

#include "arithmetic/words/add.h"
#include "arithmetic/words/residue.h"
#include "digits/radix.h"
#include "digits/radix_plan.h"
#include "shell/console.h"
#include "shell/status_line.h"

namespace kelvane::CBRv2 {

namespace {

using km_MULv3::Context;

// The rounds of left-to-right powering: after round k the exponent is the top k + 1 bits of W.
u64 rounds(u64 W) {
  return static_cast<u64>(std::bit_width(W)) - 1;
}
u64 exponent_after(u64 W, u64 round) {
  return W >> (rounds(W) - round);
}

// Words of the square that round `round` (from 1) starts with, at most.
u64 square_words(u64 W, u64 round) {
  return Plan::square_words(exponent_after(W, round - 1));
}

// The final product: low parts of the fraction and the power.
struct FinalProduct {
  u64 words; // L = n - z, of the fraction and of the rest
  u64 power; // words of the power that count, at most
  km_MULv3::btp_storage storage;
  const km_MULv3::abstract_ntp* wrapped = nullptr; // null: formed whole

  FinalProduct(u64 W, u64 n, const Context& context)
      : words(n > power_zero_words(W) ? n - power_zero_words(W) : 0), power(std::min(words, power_words(W))) {
    if (length() <= km_MULv3::LONGEST_FFT) return;
    wrapped = km_MULv3::select_wrapped(std::max(words, km_MULv3::LONGEST_FFT + 1), context, &storage);
    if (m() % residue::WRAPPED_PERIOD != 0 || m() % 61 == 0) wrapped = nullptr;
  }
  FinalProduct(const FinalProduct&) = delete;
  FinalProduct& operator=(const FinalProduct&) = delete;
  u64 length() const { return words + power; }
  u64 m() const { return wrapped->wrap_words(); }
};

// The parts of the work area for a product modulo M.
struct WrappedAreas {
  void *TA, *TB, *scratch;
  WrappedAreas(Layout& layout, const km_MULv3::abstract_ntp& record)
      : TA(layout.take_bytes(record.transform_bytes())), TB(layout.take_bytes(record.transform_bytes())),
        scratch(layout.take_bytes(record.scratch_bytes())) {}
};

struct Placement {
  u64* power;
  u64* product; // of either phase
  void* work;   // of one product
  u64 work_bytes = 0;

  Placement(Layout& layout, u64 W, const FinalProduct& last, const Context& context) {
    power = layout.take<u64>(power_words(W));
    u64 product_words = 0;
    const auto include = [&](u64 words, u64 more, bool reduced_memory) {
      product_words = std::max(product_words, words + more);
      work_bytes = std::max(work_bytes, km_MULv3::memory_cost(words, context.threads, reduced_memory));
    };
    for (u64 round = 1; round <= rounds(W); ++round)
      include(square_words(W, round), 1, context.reduced_memory); // and the carry of R
    if (last.wrapped != nullptr) {
      Layout areas;
      WrappedAreas(areas, *last.wrapped);
      work_bytes = std::max(work_bytes, areas.used());
      product_words = std::max(product_words, last.m());
    }
    // Formed whole for want of another way, it must not take more than the wrapped one.
    if (last.words != 0) include(last.length(), 0, context.reduced_memory || last.wrapped != nullptr);
    product = layout.take<u64>(std::max<u64>(product_words, 1));
    work = layout.take_bytes(work_bytes);
  }
};

double powering_cost(u64 W) {
  double cost = 0;
  for (u64 round = 1; round <= rounds(W); ++round) cost += 2 * transform_cost(square_words(W, round));
  return cost;
}

double final_cost(const FinalProduct& last) {
  return 3 * transform_cost(last.wrapped != nullptr ? last.m() : last.length());
}

// Prints the two residues; returns nonzero, the status of a failed check.
int mismatch(const char* text, u64 expected, u64 actual) {
  Console::set_color('R');
  Console::print(text);
  Console::print("\nExpected: ");
  Console::print_u64(expected);
  Console::print("\nActual  : ");
  Console::print_u64(actual);
  Console::print("\n");
  Console::set_color_white();
  return 1;
}

void show_power(const Context& context, u64 length) {
  if (context.progress == nullptr) return;
  constexpr double DIGITS_PER_WORD = 19.265919722494797; // 64 log10(2)
  const double digits = static_cast<double>(length) * DIGITS_PER_WORD;
  const std::string label = LABEL_POWERING + Console::format_commas(static_cast<u64>(digits)) + " digits  ";
  context.progress->set_label(label.c_str());
}

// P' of R^W in at.power; returns its length, *zeros the words stripped. 0: the power is wrong.
u64 raise_power(const Context& context, u64 W, const Placement& at, u64* zeros) {
  u64 length = 1;
  at.power[0] = RADIX;
  *zeros = 0;
  for (u64 round = 1; round <= rounds(W); ++round) {
    show_power(context, length);
    km_MULv3::square(context, at.product, at.power, length, at.work);
    u64 n = 2 * length;
    if (exponent_after(W, round) % 2 != 0) {
      at.product[n] = words::mul_word_in_place(at.product, n, RADIX);
      ++n;
    }
    u64 skip = 0;
    while (skip < n && at.product[skip] == 0) ++skip;
    length = words::normalized_length(at.product + skip, n - skip);
    // Beyond the bound, or zero: an error, which the residue will show; going on would leave the buffers.
    if (length == 0 || length > power_words(exponent_after(W, round))) return 0;
    std::copy_n(at.product + skip, length, at.power);
    *zeros = 2 * *zeros + skip;
    if (context.progress != nullptr) context.progress->add(2 * transform_cost(square_words(W, round)));
  }
  return length;
}

// The final product's work: the fraction, the power's low words, the hook that may spoil the result.
struct Operands {
  const u64* fraction;
  const u64* power;
  u64 power_length;
  Faults* hook;
};

// The status of the product in at.product, n words with the residue `actual()`.
template <class Hash>
int check_product(const Operands& f, const Placement& at, u64 n, u64 expected, const Hash& actual) {
  if (f.hook != nullptr && f.hook->visit(Faults::VERIFY_PRODUCT, at.product, n)) return 1;
  const u64 found = actual();
  return found == expected ? 0 : mismatch("Radix Conversion: Product Hash Mismatch", expected, found);
}

// *rest <- the residue of D from the whole product. Returns the call's status.
int rest_of_whole(const Context& context, const FinalProduct& last, const Operands& f, const Placement& at,
                  u64* rest) {
  Context inner = context;
  inner.reduced_memory = context.reduced_memory || last.wrapped != nullptr;
  const u64 n = last.words + f.power_length;
  km_MULv3::multiply(inner, at.product, f.fraction, last.words, f.power, f.power_length, at.work);
  const u64 expected =
      residue::mul(residue::hash_words(f.fraction, last.words), residue::hash_words(f.power, f.power_length));
  const int status = check_product(f, at, n, expected, [&] { return residue::hash_words(at.product, n); });
  *rest = residue::hash_words(at.product, last.words);
  return status;
}

// The same from the product modulo M, which is V turned round by s words: V's words s, s + 1, ... come first.
// *found stays false where that does not tell.
int rest_of_wrapped(const FinalProduct& last, const Operands& f, const Placement& at, u64* rest,
                    bool* found) {
  Layout layout(at.work, at.work_bytes);
  const WrappedAreas areas(layout, *last.wrapped);
  const u64 m = last.m(), s = m - last.words;
  last.wrapped->forward_once(areas.TA, f.fraction, last.words, areas.scratch);
  last.wrapped->forward_once(areas.TB, f.power, f.power_length, areas.scratch);
  const km_MULv3::Term term{areas.TA, areas.TB};
  last.wrapped->inverse_wrapped(at.product, &term, 1, areas.scratch);
  const u64 expected = residue::mul_wrapped(residue::hash_wrapped(f.fraction, last.words),
                                            residue::hash_wrapped(f.power, f.power_length));
  if (check_product(f, at, m, expected, [&] { return residue::hash_wrapped(at.product, m); }) != 0) return 1;

  for (u64 i = m; i-- > f.power_length && !*found;) *found = at.product[i >= s ? i - s : i + m - s] != 0;
  if (!*found) return 0;
  const u64 up = residue::weight(static_cast<s64>(s));
  const u64 v = residue::add(residue::mul(residue::hash_words(at.product, m - s), up),
                             residue::hash_words(at.product + (m - s), s));
  const u64 h = residue::mul(
      residue::mul(residue::hash_words(f.fraction, last.words), residue::hash_words(f.power, f.power_length)),
      up);
  const u64 H = residue::mul(residue::sub(h, v),
                             residue::inverse(residue::sub(residue::weight(static_cast<s64>(m)), 1)));
  *rest = residue::mul(residue::sub(v, H), residue::weight(-static_cast<s64>(s)));
  return 0;
}

} // namespace

u64 verify_scratch_bytes(u64 W, u64 n, u64 threads, bool reduced_memory) {
  if (W == 0 || n == 0) return 0;
  const Context context{nullptr, threads, nullptr, reduced_memory};
  const FinalProduct last(W, n, context);
  Layout layout;
  const Placement at(layout, W, last, context);
  return layout.used();
}

double verify_cost(u64 W, u64 n, u64 threads) {
  if (W == 0 || n == 0) return 0;
  return powering_cost(W) + final_cost(FinalProduct(W, n, {nullptr, threads, nullptr, false}));
}

int verify(const Context& context, u64 W, const u64* fraction, u64 n, u64* hash_out, void* scratch,
           Faults* hook) {
  *hash_out = 0;
  if (W == 0 || n == 0) return 0;
  const FinalProduct last(W, n, context);
  Layout layout(scratch, verify_scratch_bytes(W, n, context.threads, context.reduced_memory));
  const Placement at(layout, W, last, context);
  const u64 expected_power = residue::pow(residue::reduce(RADIX), W);

  u64 zeros = 0;
  u64 length = raise_power(context, W, at, &zeros);
  if (hook != nullptr && hook->visit(Faults::VERIFY_POWER, at.power, length)) return 1;
  const u64 power =
      residue::mul(residue::hash_words(at.power, length), residue::weight(static_cast<s64>(zeros)));
  if (power != expected_power || zeros != power_zero_words(W))
    return mismatch("Radix Conversion: Power Hash Mismatch", expected_power, power);

  if (context.progress != nullptr) context.progress->set_label(LABEL_MULTIPLYING);
  u64 rest = 0;
  if (last.words != 0) {
    const Operands f{fraction, at.power, std::min(length, last.words), hook};
    int status = 0;
    bool found = false;
    if (last.wrapped != nullptr) status = rest_of_wrapped(last, f, at, &rest, &found);
    if (status == 0 && !found) status = rest_of_whole(context, last, f, at, &rest);
    if (status != 0) return status;
    rest = residue::mul(rest, residue::weight(static_cast<s64>(zeros)));
    if (context.progress != nullptr) context.progress->add(final_cost(last));
  }
  const u64 product = residue::mul(residue::hash_words(fraction, n), expected_power);
  *hash_out = residue::mul(residue::sub(product, rest), residue::weight(-static_cast<s64>(n)));
  return 0;
}

} // namespace kelvane::CBRv2
