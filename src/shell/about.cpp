// See about.h.

#include "shell/about.h"

#include "shell/console.h"
#include "shell/version.h"

namespace kelvane {

namespace {

void print_disclaimer() {
  Console::set_color_yellow(true);
  Console::print("Disclaimer:\n");
  Console::set_color_white();
  Console::print("This software is provided \"as is\", without any guarantee made to its\n"
                 "suitability or fitness for any particular use. It may contain bugs so use\n"
                 "of this program is at your own risk. I take no responsibility for any\n"
                 "damage that may unintentionally be caused through its use.\n");
}

} // namespace

void print_about() {
  Console::print("\n");
  Console::print_colored("Kelvane - Euler's Constant to the eXtReMe\n", 'G');
  Console::print("Version: ");
  Console::print_colored(std::string(VERSION) + " (" + BUILD_TAG + ")", 'G');
  Console::print("\n\n");
  Console::print_colored(CREDITS, 't');
  Console::print("\n\n");
  Console::print("Kelvane computes various mathematical constants to large numbers of digits.\n"
                 "It began as a program for the Euler-Mascheroni constant and is also a\n"
                 "multi-threaded Pi benchmark, written for computer enthusiasts.\n\n");
  print_disclaimer();
}

void print_warning() {
  Console::print("\n");
  Console::print_colored("A Word of Warning...\n", 'Y');
  Console::print("\n");
  Console::print("Performing large multi-threaded computations using this program may\n"
                 "subject your computer to extremely high levels of stress for extended\n"
                 "periods of time. To protect your computer, MAKE SURE that your hardware\n"
                 "is stable and fit before performing large computations. I will take\n"
                 "absolutely no responsibility for any damage that may be caused by this\n"
                 "program.\n");
  Console::print("\n");
  print_disclaimer();
}

} // namespace kelvane
