#include "multiply/simd/isa.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "shell/cpu_features.h"

namespace kelvane::simd {

namespace {

constexpr Isa ALL[] = {Isa::avx512ifma, Isa::avx512, Isa::avx2, Isa::sse3};

Isa detect() {
  Isa limit = Isa::avx512ifma;
  if (const char* const wanted = std::getenv("KELVANE_ISA")) {
    for (const Isa isa : ALL) {
      if (std::strcmp(wanted, name(isa)) == 0) limit = isa;
    }
  }
  for (const Isa isa : ALL) {
    if (isa <= limit && supported(isa)) return isa;
  }
  return Isa::sse3;
}

std::atomic<Isa>& in_force() {
  static std::atomic<Isa> isa{detect()};
  return isa;
}

} // namespace

bool supported(Isa isa) {
  switch (isa) {
  case Isa::sse3:
    return true;
  case Isa::avx2:
    return simd_support().avx2;
  case Isa::avx512:
    return simd_support().avx512;
  case Isa::avx512ifma:
    return simd_support().avx512ifma;
  }
  return false;
}

Isa active_isa() {
  return in_force().load(std::memory_order_relaxed);
}

Isa force_isa(Isa isa) {
  if (supported(isa)) in_force().store(isa, std::memory_order_relaxed);
  return active_isa();
}

const char* name(Isa isa) {
  switch (isa) {
  case Isa::sse3:
    return "sse3";
  case Isa::avx2:
    return "avx2";
  case Isa::avx512:
    return "avx512";
  case Isa::avx512ifma:
    return "avx512ifma";
  }
  return "";
}

} // namespace kelvane::simd
