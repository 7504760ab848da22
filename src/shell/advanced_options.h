// The menu of diagnostic screens behind option 5 of the main menu.
#pragma once

namespace kelvane {

struct CpuFeatures;

void advanced_options_menu();
// The processor feature record of this machine, or a given one.
void print_hardware_features();
void print_hardware_features(const CpuFeatures& features);

} // namespace kelvane
