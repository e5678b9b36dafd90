// A text writer that appends to a string, which stays the caller's and outlives it.
#ifndef WRENLINK_SIM_TEXT_SINK_H
#define WRENLINK_SIM_TEXT_SINK_H

#include <string>

#include "sim/model/text.h"

namespace quillsim {

inline TextWriter writerTo(std::string& sink) {
    return {[](void* context, std::string_view piece) {
                static_cast<std::string*>(context)->append(piece);
                return true;
            },
            &sink};
}

}  // namespace quillsim

#endif
