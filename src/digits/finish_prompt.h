// The question to the user when a digit file could not be written.
#pragma once

#include "digits/writer.h"
#include "shell/exception.h"

namespace kelvane {

// Prints the failure and, when standard input is a terminal, asks whether to try again or to write
// to another folder (stored in `output`). False without a terminal: nobody could answer.
bool ask_to_retry(const km_exception& failure, DigitViewer::OutputSettings& output);

} // namespace kelvane
