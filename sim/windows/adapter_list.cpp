#include "sim/windows/adapter_list.h"

#include <windows.h>
// This needs the types of windows.h.
#include <setupapi.h>

#include <memory>

namespace quillsim {
namespace {

constexpr GUID kAdapterInterface = {
    0x7AC3548C, 0x4E55, 0x49BE, {0x8D, 0xB1, 0xF4, 0x73, 0xF4, 0x24, 0x6A, 0x58}};

struct ListDestroyer {
    using pointer = HDEVINFO;
    void operator()(HDEVINFO list) const {
        if (list != INVALID_HANDLE_VALUE) ::SetupDiDestroyDeviceInfoList(list);
    }
};
using DeviceList = std::unique_ptr<HDEVINFO, ListDestroyer>;

}  // namespace

std::vector<std::string> listAdapters() {
    std::vector<std::string> paths;
    const DeviceList list(::SetupDiGetClassDevsA(&kAdapterInterface, nullptr, nullptr,
                                                 DIGCF_PRESENT | DIGCF_DEVICEINTERFACE));
    SP_DEVICE_INTERFACE_DATA member{};
    member.cbSize = sizeof member;
    for (DWORD i = 0;
         ::SetupDiEnumDeviceInterfaces(list.get(), nullptr, &kAdapterInterface, i, &member); ++i) {
        struct {
            SP_DEVICE_INTERFACE_DETAIL_DATA_A head;
            char rest[MAX_PATH];
        } detail{};
        detail.head.cbSize = sizeof detail.head;
        // One that has gone meanwhile has no detail.
        if (::SetupDiGetDeviceInterfaceDetailA(list.get(), &member, &detail.head, sizeof detail,
                                               nullptr, nullptr)) {
            paths.emplace_back(detail.head.DevicePath);
        }
    }
    return paths;
}

bool isSimulated(const std::string& path) { return path.find("quillsim#") != std::string::npos; }

}  // namespace quillsim
