// Names to choose from, for users who wrote one that is not there.
//
// Threads: pure functions.
#ifndef WREN_CHOICES_H
#define WREN_CHOICES_H

#include <span>
#include <string>
#include <string_view>

namespace wren {

// "did you mean read?", or else "there are read, write".
std::string choicesFor(std::string_view word, std::span<const std::string_view> names);

}  // namespace wren

#endif
