#include "quill/map_file.h"

#include <utility>

#include "diag/result_sentry.h"
#include "platform/os.h"
#include "quill/number_text.h"

namespace wrenlink {
namespace {

constexpr char kMapFileName[] = "quillmap.txt";
constexpr std::size_t kLineSize = 64;

bool isEmpty(std::FILE* file) {
    const bool empty = std::fgetc(file) == EOF;
    std::rewind(file);
    return empty;
}

// A line N=M.
struct Mapping {
    std::uint32_t key;       // N
    std::uint32_t selected;  // M
};

// False on a syntax error.
bool parseMapping(const char* line, Mapping& mapping) {
    const auto [key, end] = parseUnsigned(line);
    if (!isPortNumber(key) || *end != '=') return false;
    mapping = {key, parseUnsigned(end + 1).value};
    return true;
}

// Looks M up in the table as enumerated. An M that selects nothing removes both keys, if
// `rewritten` has M.
void applyMapping(const Mapping& mapping, const SelectionTable& enumerated,
                  SelectionTable& rewritten) {
    const auto selected = enumerated.find(mapping.selected);
    if (selected != enumerated.end()) {
        rewritten.try_emplace(mapping.selected, mapping.key);
        rewritten.insert_or_assign(mapping.key, selected->second);
    } else if (rewritten.erase(mapping.selected) != 0) {
        rewritten.erase(mapping.key);
    }
}

}  // namespace

TextFile Open_Common_Document_File(const char* name, std::string& fullPath) {
    const Trace trace;
    std::string path;
    if (!os::sharedDocumentsFolder(path)) return nullptr;
    path += os::kPathSeparator;
    path += name;
    TextFile file(os::openTextFile(path.c_str()));
    if (file != nullptr) fullPath = path;
    return file;
}

MapFile openMapFile() {
    std::string name = kMapFileName;
    TextFile file = Open_Common_Document_File(kMapFileName, name);
    if (file == nullptr) {
        file.reset(os::openTextFile(kMapFileName));
        name.insert(0, "<application directory>\\");
    }
    if (file != nullptr && isEmpty(file.get())) file.reset();
    return {std::move(file), std::move(name)};
}

int applyMapFile(std::FILE* file, SelectionTable& table) {
    SelectionTable rewritten = table;
    char line[kLineSize];
    for (int number = 1; std::fgets(line, sizeof line, file) != nullptr; ++number) {
        Mapping mapping{};
        if (!parseMapping(line, mapping)) return number;
        applyMapping(mapping, table, rewritten);
    }
    if (std::ferror(file) == 0) table.swap(rewritten);
    return 0;
}

}  // namespace wrenlink
