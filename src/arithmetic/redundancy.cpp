#include "arithmetic/redundancy.h"

#include "arithmetic/words/residue.h"
#include "shell/console.h"
#include "shell/exception.h"

namespace kelvane {

void modular_redundancy_check(const kob_cdi_EFPh* const* results, u64 count, u64 a, u64 b, std::string* text,
                              const char* summary) {
  u64 difference[4] = {};
  bool failed = false;
  for (u64 i = 0; i < count; i++) {
    difference[i] = residue::sub(results[i]->hash, results[i]->hash_of_words());
    failed |= difference[i] != 0;
  }
  if (!failed) return;

  std::string lines =
      "Modular Redundancy Check Failed:\na = " + std::to_string(a) + "\nb = " + std::to_string(b);
  for (u64 i = 0; i < count; i++)
    lines += std::string("\nhash") + static_cast<char>('A' + i) + " = " + std::to_string(difference[i]);
  Console::set_color('R');
  Console::print("\n\n" + lines + "\n");
  Console::set_color_white();

  const std::string where = summary + std::to_string(a) + " : " + std::to_string(b);
  if (text != nullptr) *text = where;
  throw kc_BSRModularCheckFailed(where);
}

namespace {

void require_equal(u64 expected, u64 actual) {
  if (expected != actual) throw kc_BSRModularCheckFailed("Checksum Mismatch. Multiplication Failed.");
}

} // namespace

void check_product_residue(u64 hash_a, u64 hash_b, const u64* product, u64 n) {
  require_equal(residue::mul(hash_a, hash_b), residue::hash_words(product, n));
}

void check_wrapped_residue(u64 hash_a, u64 hash_b, const u64* product, u64 m) {
  require_equal(residue::mul_wrapped(hash_a, hash_b), residue::hash_wrapped(product, m));
}

} // namespace kelvane
