// Texts in both languages, chosen as the command-line tool chooses them.
#pragma once

#include "satctl/terminal/text.h"

namespace hub {

using satctl::all_digits;
using satctl::fill;
using satctl::Text;
using satctl::tr;

}  // namespace hub
