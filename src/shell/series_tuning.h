// The tuning of every series, in one table: what the report of the build's options lists.
#pragma once

#include "shell/types.h"

namespace kelvane {

struct SeriesTuning {
  struct Line {
    const char* label;
    double value;
    const char* unit; // null: none
  };
  const char* name;
  Line lines[3];
  u32 count;
};

const SeriesTuning* series_tuning(u64* count);

} // namespace kelvane
