// The adapter map file "quillmap.txt": which selection key leads to which adapter.
//
// Each line reads N=M: the key N (0 to 31) selects the adapter that the key M selected after
// enumeration. Text after M is ignored. The file is read in pieces of at most 63 characters, so the
// rest of a longer line counts as a line of its own.
#ifndef WRENLINK_QUILL_MAP_FILE_H
#define WRENLINK_QUILL_MAP_FILE_H

#include <cstdio>
#include <memory>
#include <string>

#include "quill/adapter_list.h"

namespace wrenlink {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using TextFile = std::unique_ptr<std::FILE, CloseFile>;

// An open map file and the name by which messages call it.
struct MapFile {
    TextFile file;
    std::string name;
};

// Opens a file of the shared documents folder for reading; null when there is none. On success
// `fullPath` receives its path.
TextFile Open_Common_Document_File(const char* name, std::string& fullPath);

// Opens the map file: in the shared documents folder, else in the current directory. There is no
// file when neither can be opened, or the one found is empty.
MapFile openMapFile();

// Applies all lines to the table. Returns 0, or the number of the first line with a syntax error;
// the table is then unchanged. So it is when the file cannot be read to its end, as with a file
// that cannot be opened.
int applyMapFile(std::FILE* file, SelectionTable& table);

}  // namespace wrenlink

#endif
