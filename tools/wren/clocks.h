// The SPI clocks that adapters have, in kHz: one for each step of the delay.
//
// Threads: pure functions.
#ifndef WREN_CLOCKS_H
#define WREN_CLOCKS_H

#include <cstdint>
#include <span>
#include <string>

#include "settings.h"

namespace wren {

// "1066.1 kHz".
std::string clockText(double clock);

// Throws a usage Failure, which says which clocks are near, when settings that are made in this
// order would drive a clock above the maximum, which is this one at first. The library itself heeds
// it below 2000 kHz alone.
void requireClocks(std::span<const Setting> settings, double maximum);

}  // namespace wren

#endif
