// What a summation is given by its caller.
#pragma once

#include "arithmetic/kob_cdi_EFPh.h"
#include "multiply/table/km_MULv3.h"

namespace kelvane {

// Called between a merge and its check, so that a test can damage a product and see the check fire.
class SeriesFault {
public:
  virtual ~SeriesFault() = default;
  virtual void after_merge(kob_cdi_EFPh& result, u64 a, u64 b) = 0;
};

struct SeriesContext {
  km_MULv3::Context multiply;
  SeriesFault* fault = nullptr;
};

} // namespace kelvane
