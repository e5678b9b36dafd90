// Text writers over the sinks that a process has. The sink stays the caller's and outlives the
// writer.
#ifndef QUILLSIM_SERVER_TEXT_SINK_H
#define QUILLSIM_SERVER_TEXT_SINK_H

#include <ostream>
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

inline TextWriter writerTo(std::ostream& sink) {
    return {[](void* context, std::string_view piece) {
                *static_cast<std::ostream*>(context) << piece;
                return true;
            },
            &sink};
}

}  // namespace quillsim

#endif
