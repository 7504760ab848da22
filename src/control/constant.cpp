#include "control/constant.h"

#include "shell/exception.h"

namespace kelvane {

u64 kcr_Constant::get_memory_B(s32, const MemoryQuery&, MemoryFigure* result) const {
  if (result == nullptr) return 0;
  fatal("kcr_Constant::get_memory_B() - Function not implemented");
}

u64 kcr_Constant::get_memory_S(s32, const MemoryQuery&, MemoryFigure* result) const {
  if (result == nullptr) return 0;
  fatal("kcr_Constant::get_memory_S() - Function not implemented");
}

void kcr_Constant::run_B(s32, ComputeContext&) const {
  fatal("kcr_Constant::run_B() - Function not implemented");
}

void kcr_Constant::run_S(s32, ComputeContext&) const {
  fatal("kcr_Constant::run_S() - Function not implemented");
}

void kcr_Constant::prepare(u64) {}

} // namespace kelvane
