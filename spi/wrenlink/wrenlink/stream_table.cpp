#include "wrenlink/stream_table.h"

#include <utility>

namespace wrenlink {
namespace {

CUsbStreamTable* theTable = nullptr;

}  // namespace

CUsbStreamTable& streamTable() { return *theTable; }

CUsbStreamTable::CUsbStreamTable() { theTable = this; }

CUsbStreamTable::~CUsbStreamTable() { delete slots_; }

bool CUsbStreamTable::addStream(std::uint32_t* id, CUsbStreamData* stream) {
    const LocalLockGuard guard(lock_);
    if (slots_ == nullptr) slots_ = new Slots{};
    if (count_ >= SPIFNS_MAX_STREAMS) return false;
    do {
        cursor_ = (cursor_ + 1) % SPIFNS_MAX_STREAMS;
    } while ((*slots_)[cursor_] != nullptr);
    (*slots_)[cursor_] = stream;
    stream->id_ = cursor_;
    *id = cursor_;
    ++count_;
    return true;
}

CUsbStreamRef CUsbStreamTable::reference(std::uint32_t id) {
    if (slots_ == nullptr || (*slots_)[id] == nullptr) return {};
    ++(*slots_)[id]->references_;
    return {*this, (*slots_)[id]};
}

CUsbStreamRef CUsbStreamTable::getStream(std::uint32_t id) {
    if (id >= SPIFNS_MAX_STREAMS) return {};
    const LocalLockGuard guard(lock_);
    return reference(id);
}

CUsbStreamRef CUsbStreamTable::getLegacyStream() {
    const LocalLockGuard guard(lock_);
    if (!legacyAssigned_) return {};
    return reference(legacyId_);
}

bool CUsbStreamTable::assignLegacyStream(CUsbStreamData* stream) {
    const LocalLockGuard guard(lock_);
    if (slots_ == nullptr || (*slots_)[stream->id()] != stream) return true;
    if (legacyAssigned_) return legacyId_ == stream->id();
    legacyAssigned_ = true;
    legacyId_ = stream->id();
    return true;
}

void CUsbStreamTable::release(CUsbStreamData* stream) {
    if (--stream->references_ == 0) delete stream;
}

void CUsbStreamTable::releaseStream(CUsbStreamData* stream) {
    if (stream == nullptr) return;
    const LocalLockGuard guard(lock_);
    release(stream);
}

void CUsbStreamTable::removeStream(std::uint32_t id) {
    if (id >= SPIFNS_MAX_STREAMS) return;
    const LocalLockGuard guard(lock_);
    if (slots_ == nullptr || (*slots_)[id] == nullptr) return;
    CUsbStreamData* stream = std::exchange((*slots_)[id], nullptr);
    if (--count_ == 0) delete std::exchange(slots_, nullptr);
    release(stream);
    if (legacyAssigned_ && legacyId_ == id) legacyAssigned_ = false;
}

}  // namespace wrenlink
