#include "record.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace wren {

void record(const Adapter& adapter, std::chrono::duration<double> taken) {
    if (!adapter.context.record.isOpen()) return;
    const Report& report = adapter.report;
    Json line{{"time", timeStamp()},
              {"version", versionText(spifns_get_version())},
              {"adapter", report.adapter()},
              {"firmware", nullptr},
              {"command", adapter.context.output.command()}};
    const std::string firmware = adapter.session.firmware();
    if (firmware != "0.0") line["firmware"] = firmware;  // else the adapter has not told
    for (const char* member :
         {"address", "count", "pieces", "crc32", "written", "verified", "differing"})
        if (report.result().contains(member)) line[member] = report.result()[member];
    line["exit"] = static_cast<int>(report.exitCode());
    if (report.failure()) line["error"] = report.failure()->what();
    line["seconds"] = std::round(taken.count() * 1000) / 1000;
    adapter.context.record.add(line.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n');
}

}  // namespace wren
