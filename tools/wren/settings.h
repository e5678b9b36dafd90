// The variables of a stream as the tool offers them. The library takes almost any text for a value
// and ignores a name that it does not know, so the tool checks both before anything is sent.
//
// Threads: pure functions.
#ifndef WREN_SETTINGS_H
#define WREN_SETTINGS_H

#include <string>
#include <string_view>
#include <vector>

namespace wren {

// One variable and its new value, both as the library takes them.
struct Setting {
    std::string name;
    std::string value;
};

// Makes a setting; the name in any case, the value with or without its unit. Throws a usage Failure
// that lists the names, or says which values the variable takes.
Setting makeSetting(std::string_view name, std::string_view value);

// The same from "NAME=VALUE".
Setting parseSetting(std::string_view text);

// The name of a variable that can be read, in the library's spelling. Throws a usage Failure that
// lists the names.
std::string readableVariable(std::string_view name);

// All that can be read.
std::vector<std::string> readableVariables();

// Whether a variable, in the library's spelling, can be read.
bool isReadable(std::string_view name) noexcept;

// The value of a variable, in the library's spelling, for people: with its unit.
std::string shownValue(std::string_view name, const std::string& value);

// The name of a chip command, in the library's spelling. Throws a usage Failure that lists them.
std::string chipCommand(std::string_view name);

}  // namespace wren

#endif
