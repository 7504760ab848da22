// The menu of diagnostic screens behind option 5 of the main menu.
#pragma once

namespace kelvane {

void advanced_options_menu();
// The processor feature record of this machine.
void print_hardware_features();

} // namespace kelvane
