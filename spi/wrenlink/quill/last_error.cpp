#include "quill/last_error.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "diag/result_sentry.h"

namespace wrenlink {
namespace {

struct LastErrorRecord {
    std::int32_t code;
    char text[1024];
    std::uint32_t address;
};

LastErrorStore* theStore = nullptr;

LastErrorRecord* currentRecord() { return static_cast<LastErrorRecord*>(theStore->slot().get()); }

LastErrorRecord* makeRecord() {
    void* record = std::malloc(sizeof(LastErrorRecord));
    if (record == nullptr || !theStore->slot().set(record)) {
        std::free(record);
        throw std::bad_alloc();
    }
    return static_cast<LastErrorRecord*>(record);
}

}  // namespace

LastErrorStore::LastErrorStore() : slot_(std::free) { theStore = this; }

int Quill_SetLastError(int code, unsigned int address, const char* format, ...) {
    const Trace trace;
    LastErrorRecord* record = currentRecord();
    if (record == nullptr) record = makeRecord();
    record->code = code;
    record->address = address;
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(record->text, sizeof record->text, format, arguments);
    va_end(arguments);
    return code != 0 ? 1 : 0;
}

unsigned int Quill_GetLastError(unsigned int* address, const char** text) {
    const Trace trace;
    const LastErrorRecord* record = currentRecord();
    if (address != nullptr) *address = record == nullptr ? 0 : record->address;
    if (text != nullptr) *text = record == nullptr ? "" : record->text;
    return record == nullptr ? 0 : static_cast<unsigned int>(record->code);
}

int Quill_AppendToLastError(const char* text) {
    const Trace trace;
    unsigned int address = 0;
    const char* stored = nullptr;
    const auto code = static_cast<int>(Quill_GetLastError(&address, &stored));
    const std::string copy = stored;  // the store rewrites the text in place
    if (text == nullptr || *text == '\0')
        return Quill_SetLastError(code, address, "%s", copy.c_str());
    return Quill_SetLastError(code, address, "%s: %s", copy.c_str(), text);
}

void Quill_ClearLastError() {
    const Trace trace;
    LastErrorRecord* record = currentRecord();
    if (record == nullptr) return;
    std::free(record);
    theStore->slot().set(nullptr);
}

}  // namespace wrenlink
