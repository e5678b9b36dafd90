// The baseline of locks: a file beside those that the library shares, opened and closed, which is
// the least that reaching a shared object costs.
#ifndef WRENLINK_BENCH_BARE_FILE_POSIX_H
#define WRENLINK_BENCH_BARE_FILE_POSIX_H

#include <string>

namespace wrenlink::bench {

class BareFile {
   public:
    // Makes the file, or ends the program.
    BareFile();
    BareFile(const BareFile&) = delete;
    BareFile& operator=(const BareFile&) = delete;
    ~BareFile();

    // False when the file cannot be opened.
    bool openAndClose();

   private:
    std::string path_;
};

}  // namespace wrenlink::bench

#endif
