// "Custom Compute a Constant": shows the settings, edits them one at a time, starts the computation.
#pragma once

namespace kelvane {

struct ComputeSettings;

// The loop from the defaults (Pi, 50,000,000 digits) to the end of the computation that the user starts.
void custom_compute_menu();

// The screen, without its prompt. Returns whether the computation may start.
bool print_settings(const ComputeSettings& settings);

// Reads an option and carries it out. False when the computation is to start.
bool edit_settings(ComputeSettings& settings, bool may_start);

// "Compute a Constant": asks for a constant and its parameter until both are accepted.
void constant_menu(ComputeSettings& settings);

} // namespace kelvane
