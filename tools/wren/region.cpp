#include "region.h"

#include <fmt/format.h>

#include "failure.h"
#include "number.h"

namespace wren {

std::string countOf(std::size_t words) {
    return fmt::format("{} word{}", words, words == 1 ? "" : "s");
}

std::string addressesOf(std::span<const Region> regions) {
    std::string text;
    for (const Region& region : regions) {
        text += fmt::format("{}0x{:04x}", text.empty() ? "" : ", ", region.address);
        if (region.count > 1)
            text += fmt::format(" to 0x{:04x}", region.address + region.count - 1);
    }
    return text;
}

Region makeRegion(std::uint32_t address, std::size_t count) {
    if (count == 0) throw Failure(ExitCode::usage, "a region has at least one word");
    if (address + count > kMemoryWords)
        throw Failure(ExitCode::usage,
                      fmt::format("{} from 0x{:04x} on would reach beyond the last word, 0xffff",
                                  countOf(count), address));
    return {address, static_cast<std::uint32_t>(count)};
}

Region parseRegion(std::string_view text) {
    if (text == "all") return {};
    const std::size_t colon = text.find(':');
    if (colon != std::string_view::npos) {
        const auto address = wholeNumber(text.substr(0, colon));
        const auto count = wholeNumber(text.substr(colon + 1));
        if (address && *address < kMemoryWords && count && *count > 0 && *count <= kMemoryWords)
            return makeRegion(static_cast<std::uint32_t>(*address), *count);
    }
    throw Failure(
        ExitCode::usage,
        fmt::format("a region reads START:COUNT, with a START up to 0xffff and a COUNT from 1, or "
                    "all, not '{}'",
                    text));
}

}  // namespace wren
