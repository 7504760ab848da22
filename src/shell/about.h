// The screens About and A Word of Warning.
#pragma once

namespace kelvane {

void print_about();
void print_warning();

} // namespace kelvane
