// The modular redundancy check: the residue that a number carries (computed from its operands'
// residues) against the residue of its words. A difference means an arithmetic or hardware error.
#pragma once

#include <string>

#include "arithmetic/kob_cdi_EFPh.h"
#include "shell/types.h"

namespace kelvane {

// Checks `count` (1 to 4) results of the step over [a, b). On a difference prints
// "Modular Redundancy Check Failed:" with a, b and each difference (carried residue less that of the words),
// writes the summary and "a : b" into *text when given, and throws kc_BSRModularCheckFailed with that text.
void modular_redundancy_check(const kob_cdi_EFPh* const* results, u64 count, u64 a, u64 b,
                              std::string* text = nullptr,
                              const char* summary = "Modular Redundancy Check Failed: ");

// For the products of the final steps: product must be A times B modulo 2^61 - 1; else throws
// kc_BSRModularCheckFailed with "Checksum Mismatch. Multiplication Failed.".
void check_product_residue(u64 hash_a, u64 hash_b, const u64* product, u64 n);
// The same for a product modulo 2^(64 m) - 1, m a multiple of residue::WRAPPED_PERIOD; the operands' residues
// are those of residue::hash_wrapped.
void check_wrapped_residue(u64 hash_a, u64 hash_b, const u64* product, u64 m);

} // namespace kelvane
