// The screen "Component Stress Tester".
#pragma once

namespace kelvane {

// Shows the settings and edits them until the test is started, which the user ends with Ctrl+C. Does not
// return.
void stress_test_menu();

} // namespace kelvane
