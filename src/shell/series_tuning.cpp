// See series_tuning.h.

#include "shell/series_tuning.h"

#include <iterator>

#include "series/log_formula/cost.h"
#include "series/series_e.h"
#include "series/series_pi.h"

namespace kelvane {

namespace {

SeriesTuning::Line overhead(u64 words, const char* label = "    BSR Memory Overhead:\t") {
  return {label, static_cast<double>(words), "words"};
}
SeriesTuning::Line threshold(u64 words, const char* label = "    BSR End Threshold:  \t") {
  return {label, static_cast<double>(words), "words"};
}

// The words of the series that are here come from the series themselves.
const Series_Pi_Chudnovsky CHUDNOVSKY;
const Series_Pi_Ramanujan RAMANUJAN;

const SeriesTuning TABLE[] = {
    {"e - Taylor",
     {overhead(Series_E_Taylor::MEMORY_OVERHEAD), threshold(Series_E_Taylor::END_THRESHOLD)},
     2},
    {"Pi - Chudnovsky", {overhead(CHUDNOVSKY.memory_overhead), threshold(CHUDNOVSKY.end_threshold)}, 2},
    {"Pi - Ramanujan", {overhead(RAMANUJAN.memory_overhead), threshold(RAMANUJAN.end_threshold)}, 2},
    {"ArcCoth - Binary Splitting", {overhead(9)}, 1},
    {"Log - Formula Generator", {{"    Division Cost:      \t", log_search::DIVISION_COST, nullptr}}, 1},
    {"Zeta(3) - Amdeberhan-Zeiberger 2", {overhead(35), threshold(6)}, 2},
    {"Zeta(3) - Amdeberhan-Zeiberger 1", {overhead(22), threshold(12)}, 2},
    {"ArcSinlemn - Binary Splitting", {overhead(13), threshold(8)}, 2},
    {"Catalan - Lupas", {overhead(19), threshold(10)}, 2},
    {"Catalan - Huvent", {overhead(58)}, 1},
    {"EulerGamma - Brent-McMillan",
     {overhead(16, "    AB BSR Memory Overhead:\t"), overhead(15, "    C  BSR Memory Overhead:\t"),
      threshold(8, "    C  BSR End Threshold:  \t")},
     3},
};

} // namespace

const SeriesTuning* series_tuning(u64* count) {
  *count = std::size(TABLE);
  return TABLE;
}

} // namespace kelvane
