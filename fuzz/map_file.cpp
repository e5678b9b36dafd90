// Map files: each line is read as the C library reads its numbers, the lines change the selection
// table as the rules say, and a faulty line leaves it as it is.
#include "quill/map_file.h"

#include <algorithm>
#include <optional>

#include "fuzz/harness.h"
#include "tests/support/c_numbers.h"

namespace wrenlink::fuzz {
namespace {

constexpr std::size_t kLongestLine = 63;

std::optional<Mapping> readLine(const std::string& line) {
    char* end = nullptr;
    const std::uint32_t key = test::readUnsigned(line.c_str(), &end);
    if (key > 31 || *end != '=') return {};
    return Mapping{key, test::readUnsigned(end + 1, &end)};
}

void apply(const Mapping& line, const SelectionTable& enumerated, SelectionTable& table) {
    if (enumerated.count(line.selected) != 0) {
        if (table.count(line.selected) == 0) table[line.selected] = line.key;
        table[line.key] = enumerated.at(line.selected);
    } else if (table.count(line.selected) != 0) {
        table.erase(line.selected);
        table.erase(line.key);
    }
}

// The expected table, and the number of the faulty line or 0.
int expect(std::string text, SelectionTable& table) {
    const SelectionTable enumerated = table;
    SelectionTable rewritten = table;
    for (int number = 1; !text.empty(); ++number) {
        std::size_t size = std::min(text.size(), kLongestLine);
        size = std::min(size, text.find('\n') == std::string::npos ? size : text.find('\n') + 1);
        const std::optional<Mapping> mapping = readLine(text.substr(0, size));
        if (!mapping) return number;
        apply(*mapping, enumerated, rewritten);
        text.erase(0, size);
    }
    table = rewritten;
    return 0;
}

}  // namespace

void run(FuzzedDataProvider& input) {
    SelectionTable table;
    for (std::uint64_t port = input.ConsumeIntegralInRange(0U, 4U); port-- > 0;) {
        table.try_emplace(input.ConsumeIntegralInRange(0U, 99U), port);
        table.try_emplace(static_cast<std::uint32_t>(port), port);
    }
    SelectionTable expected = table;
    std::string text = input.ConsumeRemainingBytesAsString();
    if (text.empty()) return;
    const TextFile file(::fmemopen(text.data(), text.size(), "r"));
    const int faultyLine = applyMapFile(file.get(), table);
    require(faultyLine == expect(text, expected), "the first faulty line is found");
    require(table == expected, "the lines change the table as the rules say");
}

}  // namespace wrenlink::fuzz
