// The main menu: one choice per run of the program.
#pragma once

namespace kelvane {

// Prints the banner and the menu, reads a choice and runs it.
void main_menu();

} // namespace kelvane
