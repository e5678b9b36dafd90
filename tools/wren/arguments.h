// Options and arguments that several commands take.
//
// Threads: used by the main thread.
#ifndef WREN_ARGUMENTS_H
#define WREN_ARGUMENTS_H

#include <CLI/CLI.hpp>
#include <cstdint>

#include "image_source.h"
#include "progress.h"

namespace wren {

// Takes a whole number within limits, in decimal or as 0x..., and hands it on in decimal.
CLI::Validator wholeNumberIn(std::uint64_t lowest, std::uint64_t highest);

// A number of seconds above 0, or from 0 on; at most a day.
CLI::Validator secondsValidator(bool orNone = false);

// What a flag without a value hands on, as 1.
CLI::Validator flagAsOne();

// --watch, or --watch=SECONDS.
void addWatch(CLI::App* command, const char* purpose, std::optional<double>& seconds);
CLI::Option* addAddress(CLI::App* command, std::optional<std::uint32_t>& address);
CLI::Option* addWords(CLI::App* command, const char* name, std::vector<std::uint16_t>& words,
                      const char* purpose);
CLI::Option* addCount(CLI::App* command, std::optional<std::uint32_t>& count);
// --progress.
void addProgress(CLI::App* app, ProgressForm& form);
// --format and --endian.
void addFormat(CLI::App* command, FormatChoice& format);

}  // namespace wren

#endif
