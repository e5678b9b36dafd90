#include "sim/windows/installation.h"

#include <windows.h>
// These need the types of windows.h.
#include <newdev.h>
#include <setupapi.h>

#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>

#include "sim/windows/control_protocol.h"

namespace quillsim {
namespace {

// What the INF file calls the driver.
constexpr char kServiceName[] = "quillsim";
// The class that the INF file names.
constexpr GUID kSystemClass = {
    0x4D36E97D, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};

[[noreturn]] void fail(const char* what) {
    throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), what);
}

void check(BOOL good, const char* what) {
    if (!good) fail(what);
}

struct ListDestroyer {
    using pointer = HDEVINFO;
    void operator()(HDEVINFO list) const { ::SetupDiDestroyDeviceInfoList(list); }
};
using DeviceList = std::unique_ptr<HDEVINFO, ListDestroyer>;

DeviceList owned(HDEVINFO list) {
    if (list == INVALID_HANDLE_VALUE) fail("the list of devices");
    return DeviceList(list);
}

struct ServiceCloser {
    using pointer = SC_HANDLE;
    void operator()(SC_HANDLE handle) const { ::CloseServiceHandle(handle); }
};
using Service = std::unique_ptr<SC_HANDLE, ServiceCloser>;

// Unloads the driver, so that the next installation loads the file of then.
void deleteService() {
    constexpr DWORD kRights = SERVICE_STOP | SERVICE_QUERY_STATUS | DELETE;
    const Service manager(::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) fail("the services");
    const Service service(::OpenServiceA(manager.get(), kServiceName, kRights));
    if (!service) return;
    SERVICE_STATUS status{};
    // Fails when it is not running.
    ::ControlService(service.get(), SERVICE_CONTROL_STOP, &status);
    for (int i = 0; i < 500; ++i) {
        check(::QueryServiceStatus(service.get(), &status), "the driver's service");
        if (status.dwCurrentState == SERVICE_STOPPED) break;
        ::Sleep(10);
    }
    check(::DeleteService(service.get()), "deleting the driver's service");
}

bool isBus(HDEVINFO list, SP_DEVINFO_DATA& device) {
    char ids[256] = "";
    return ::SetupDiGetDeviceRegistryPropertyA(list, &device, SPDRP_HARDWAREID, nullptr,
                                               reinterpret_cast<BYTE*>(ids), sizeof ids - 1,
                                               nullptr) != FALSE &&
           ::_stricmp(ids, kBusHardwareId) == 0;
}

}  // namespace

void installDriver(const std::filesystem::path& inf) {
    const DeviceList list = owned(::SetupDiCreateDeviceInfoList(&kSystemClass, nullptr));
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof device;
    check(::SetupDiCreateDeviceInfoA(list.get(), "quillsim", &kSystemClass, nullptr, nullptr,
                                     DICD_GENERATE_ID, &device),
          "the bus device");
    // The list of hardware ids ends with an empty one.
    char ids[sizeof kBusHardwareId + 1] = {};
    std::memcpy(ids, kBusHardwareId, sizeof kBusHardwareId);
    check(::SetupDiSetDeviceRegistryPropertyA(list.get(), &device, SPDRP_HARDWAREID,
                                              reinterpret_cast<const BYTE*>(ids), sizeof ids),
          "the bus device's hardware id");
    check(::SetupDiCallClassInstaller(DIF_REGISTERDEVICE, list.get(), &device),
          "registering the bus device");
    const std::wstring id(std::begin(kBusHardwareId), std::end(kBusHardwareId));
    BOOL reboot = FALSE;
    check(::UpdateDriverForPlugAndPlayDevicesW(nullptr, id.c_str(), inf.c_str(), INSTALLFLAG_FORCE,
                                               &reboot),
          "installing the driver");
}

void removeDriver() {
    const DeviceList list =
        owned(::SetupDiGetClassDevsA(nullptr, "ROOT", nullptr, DIGCF_ALLCLASSES));
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof device;
    for (DWORD i = 0; ::SetupDiEnumDeviceInfo(list.get(), i, &device); ++i) {
        if (!isBus(list.get(), device)) continue;
        check(::SetupDiCallClassInstaller(DIF_REMOVE, list.get(), &device),
              "removing the bus device");
    }
    deleteService();
}

}  // namespace quillsim
