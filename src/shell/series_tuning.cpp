// See series_tuning.h.

#include "shell/series_tuning.h"

#include <iterator>

#include "series/log_formula/cost.h"
#include "series/series_arccoth.h"
#include "series/series_arcsinlemn.h"
#include "series/series_catalan.h"
#include "series/series_e.h"
#include "series/series_euler_gamma.h"
#include "series/series_pi.h"
#include "series/series_zeta3.h"

namespace kelvane {

namespace {

SeriesTuning::Line overhead(u64 words, const char* label = "    BSR Memory Overhead:\t") {
  return {label, static_cast<double>(words), "words"};
}
SeriesTuning::Line threshold(u64 words, const char* label = "    BSR End Threshold:  \t") {
  return {label, static_cast<double>(words), "words"};
}

// The words come from the series themselves; arguments that they do not depend on are any.
const Series_Pi_Chudnovsky CHUDNOVSKY;
const Series_Pi_Ramanujan RAMANUJAN;
const Series_ArcCoth ARCCOTH(2);
const Series_Zeta3_AZ2 ZETA3_2;
const Series_Zeta3_AZ1 ZETA3_1;
const Series_ArcSinlemn ARCSINLEMN(1, 2);
const Series_Catalan_Lupas LUPAS;
const Series_Catalan_Huvent HUVENT;
const Series_EulerGamma_BM_C GAMMA_C(3);

const SeriesTuning TABLE[] = {
    {"e - Taylor",
     {overhead(Series_E_Taylor::MEMORY_OVERHEAD), threshold(Series_E_Taylor::END_THRESHOLD)},
     2},
    {"Pi - Chudnovsky", {overhead(CHUDNOVSKY.memory_overhead), threshold(CHUDNOVSKY.end_threshold)}, 2},
    {"Pi - Ramanujan", {overhead(RAMANUJAN.memory_overhead), threshold(RAMANUJAN.end_threshold)}, 2},
    {"ArcCoth - Binary Splitting", {overhead(ARCCOTH.memory_overhead)}, 1},
    {"Log - Formula Generator", {{"    Division Cost:      \t", log_search::DIVISION_COST, nullptr}}, 1},
    {"Zeta(3) - Amdeberhan-Zeiberger 2",
     {overhead(ZETA3_2.memory_overhead), threshold(ZETA3_2.end_threshold)},
     2},
    {"Zeta(3) - Amdeberhan-Zeiberger 1",
     {overhead(ZETA3_1.memory_overhead), threshold(ZETA3_1.end_threshold)},
     2},
    {"ArcSinlemn - Binary Splitting",
     {overhead(ARCSINLEMN.memory_overhead), threshold(ARCSINLEMN.end_threshold)},
     2},
    {"Catalan - Lupas", {overhead(LUPAS.memory_overhead), threshold(LUPAS.end_threshold)}, 2},
    {"Catalan - Huvent", {overhead(HUVENT.memory_overhead)}, 1},
    {"EulerGamma - Brent-McMillan",
     {overhead(Series_EulerGamma_BM_AB::MEMORY_OVERHEAD, "    AB BSR Memory Overhead:\t"),
      overhead(GAMMA_C.memory_overhead, "    C  BSR Memory Overhead:\t"),
      threshold(GAMMA_C.end_threshold, "    C  BSR End Threshold:  \t")},
     3},
};

} // namespace

const SeriesTuning* series_tuning(u64* count) {
  *count = std::size(TABLE);
  return TABLE;
}

} // namespace kelvane
