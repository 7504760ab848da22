// The report "Objects Library": what the big numbers are computed with. See compilation_options.h.

#include <initializer_list>

#include "multiply/simd/isa.h"
#include "multiply/table/km_MULv3.h"
#include "shell/compilation_options.h"
#include "shell/console.h"

namespace kelvane {

namespace {

struct Kernel {
  const char* label;
  const char* name;
};

void print_kernels(std::initializer_list<Kernel> kernels) {
  for (const Kernel& kernel : kernels) Console::println_labeled(kernel.label, kernel.name, 'G');
  Console::print("\n");
}

} // namespace

void print_objects_library() {
  Console::print_title("Objects Library\n\n");
  print_kernels({{"ADD_ci:\t", "32-bit Word"},
                 {"    ADD_c64i_add_ip\t", "32-bit Emulation"},
                 {"    ADD_c64i_add_ir\t", "32-bit Emulation"},
                 {"    ADD_c64i_add_nr\t", "32-bit Emulation"}});
  print_kernels({{"MULB_ci:\t", "x64 Native"},
                 {"    kmi_MULB_c32i_umul:\t", "Default"},
                 {"    kmi_MULB_c64i_umul:\t", "GCC Inline Assembly"},
                 {"    kmb_MULB_c64i_sqrB:\t", "kmh_MULB_c64i_v0_sqrB_Default_mul64_u0"},
                 {"    kmb_MULB_c64i_elmB:\t", "kmh_MULB_c64i_v0_elmB_Default_mul64_u0"},
                 {"    kmb_MULB_c64i_mulB:\t", "kmh_MULB_c64i_v0_mulB_Default_mul64_u0"},
                 {"    kmb_MULB_c64i_sqr:\t", "kmh_MULB_c64i_v0_sqrK_Default_u0"},
                 {"    kmb_MULB_c64i_elm:\t", "kmh_MULB_c64i_v0_elmK_Default_u0"},
                 {"    kmb_MULB_c64i_mul:\t", "kmh_MULB_c64i_v0_mulK_Default_u0"}});
  // A fixed text: the thresholds in force are km_MULB::Thresholds.
  Console::print("MULv2:\n");
  Console::println_labeled("    c32i_sqr: Basecase - Karatsuba:\t", s64{15}, "words", 'G');
  Console::println_labeled("    c32i_mul: Basecase - Karatsuba:\t", s64{14}, "words", 'G');
  Console::println_labeled("    c64i_sqr: Basecase - Karatsuba:\t", s64{13}, "words", 'G');
  Console::println_labeled("    c64i_mul: Basecase - Karatsuba:\t", s64{13}, "words", 'G');
  Console::print("\n");
  print_kernels({{"FFT: \t", "f64v1_SSE3"}});
  print_kernels({{"HNT Code Path:\t", "v1_SSE3"}, {"HNT Macros:   \t", "f64v1_SSE3"}});
  print_kernels({{"VST: \t", "f64v1_SSE3"},
                 {"    kmi_VSTv2_rw48_carry\t", "Default"},
                 {"    kmi_VSTv2_rw48_f4\t", "Default"},
                 {"    kmi_VSTv2_rw48_f5\t", "Default"},
                 {"    kmi_VSTv2_rw48_f6\t", "Default"},
                 {"    kmi_VSTv2_rw48_f7\t", "Default"},
                 {"    kmi_VSTv2_rw48_f8\t", "Default"},
                 {"    kmi_VSTv2_rw48_f9\t", "Default"},
                 {"    spb_t::compress  \t", "Default"},
                 {"    spb_t::decompress\t", "Default"}});
  // The names above are the baseline's; this is what the processor at hand is given.
  print_kernels({{"Vector Kernels in Use:\t", simd::name(simd::active_isa())}});
  km_MULv3::print_tables();
}

} // namespace kelvane
