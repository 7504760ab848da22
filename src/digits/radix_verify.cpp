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

using km_MULv3::abstract_btp;
using km_MULv3::btp_storage;
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
  u64 words;    // n - z: length of the rest
  u64 fraction; // words of the fraction that count
  u64 power;    // words of the power that count, at most

  FinalProduct(u64 W, u64 n)
      : words(n > power_zero_words(W) ? n - power_zero_words(W) : 0), fraction(words),
        power(std::min(words, power_words(W))) {}
  u64 length() const { return fraction + power; }
};

struct Placement {
  u64* power;
  u64* product; // of either phase
  void* work;   // of one product

  Placement(Layout& layout, u64 W, u64 n, u64 threads, bool reduced_memory) {
    power = layout.take<u64>(power_words(W));
    u64 product_words = 0, work_bytes = 0;
    const auto include = [&](u64 words, u64 more) {
      product_words = std::max(product_words, words + more);
      work_bytes = std::max(work_bytes, km_MULv3::memory_cost(words, threads, reduced_memory));
    };
    for (u64 round = 1; round <= rounds(W); ++round) include(square_words(W, round), 1); // and the carry of R
    if (const FinalProduct last(W, n); last.words != 0) include(last.length(), 0);
    product = layout.take<u64>(std::max<u64>(product_words, 1));
    work = layout.take_bytes(work_bytes);
  }
};

double powering_cost(u64 W) {
  double cost = 0;
  for (u64 round = 1; round <= rounds(W); ++round) cost += 2 * transform_cost(square_words(W, round));
  return cost;
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

} // namespace

u64 verify_scratch_bytes(u64 W, u64 n, u64 threads, bool reduced_memory) {
  if (W == 0 || n == 0) return 0;
  Layout layout;
  const Placement at(layout, W, n, threads, reduced_memory);
  return layout.used();
}

double verify_cost(u64 W, u64 n, u64 threads) {
  static_cast<void>(threads);
  if (W == 0 || n == 0) return 0;
  return powering_cost(W) + 3 * transform_cost(FinalProduct(W, n).length());
}

int verify(const Context& context, u64 W, const u64* fraction, u64 n, u64* hash_out, void* scratch,
           Faults* hook) {
  *hash_out = 0;
  if (W == 0 || n == 0) return 0;
  Layout layout(scratch, verify_scratch_bytes(W, n, context.threads, context.reduced_memory));
  const Placement at(layout, W, n, context.threads, context.reduced_memory);
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
  if (const FinalProduct last(W, n); last.words != 0) {
    length = std::min(length, last.words);
    const u64 product_length = last.fraction + length;
    km_MULv3::multiply(context, at.product, fraction, last.fraction, at.power, length, at.work);
    if (hook != nullptr && hook->visit(Faults::VERIFY_PRODUCT, at.product, product_length)) return 1;
    const u64 expected =
        residue::mul(residue::hash_words(fraction, last.fraction), residue::hash_words(at.power, length));
    const u64 actual = residue::hash_words(at.product, product_length);
    if (actual != expected) return mismatch("Radix Conversion: Product Hash Mismatch", expected, actual);
    rest =
        residue::mul(residue::hash_words(at.product, last.words), residue::weight(static_cast<s64>(zeros)));
    if (context.progress != nullptr) context.progress->add(3 * transform_cost(last.length()));
  }
  const u64 product = residue::mul(residue::hash_words(fraction, n), expected_power);
  *hash_out = residue::mul(residue::sub(product, rest), residue::weight(-static_cast<s64>(n)));
  return 0;
}

} // namespace kelvane::CBRv2
