// Where adapters are offered, and where hosts share what they share of them.
//
// Threads: may be called from any.
#ifndef WREN_RUNTIME_FOLDER_POSIX_H
#define WREN_RUNTIME_FOLDER_POSIX_H

#include <string>

namespace wren::system {

std::string runtimeFolder();

}  // namespace wren::system

#endif
