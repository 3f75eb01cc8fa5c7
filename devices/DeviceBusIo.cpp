// SPDX-License-Identifier: Apache-2.0
#include "devices/DeviceBusIo.h"

#include "platform/diagnostics/Trace.h"

namespace {

constexpr unsigned int kPortWriteRequest = 0x400C736E;  // _IOW('s', 0x6E, PortRequest)
constexpr unsigned int kPortReadRequest = 0x800C736D;   // _IOR('s', 0x6D, PortRequest)

/// The driver's request record, in the host's byte order.
struct PortRequest {
    std::uint32_t port;
    std::uint32_t width;
    std::uint32_t value;
};
static_assert(sizeof(PortRequest) == 12);

}  // namespace

CDeviceBusIoBase::CDeviceBusIoBase(const char* path)
    : CDeviceIo(path, kDeviceRead | kDeviceWrite, kShareReadWrite, kOpenExisting, kAttributeNormal) {
    if (path == nullptr) {
        return;
    }
    EM_TRACE(4, "\nCDeviceBusIoBase    : connect to BUSIO device...");
    connected_ = Open();
    EM_TRACE(4, "\nCDeviceBusIoBase    : %sconnected", connected_ ? "" : "not");
}

bool CDeviceBusIo::WritePort(std::uint32_t port, std::uint32_t width, std::uint32_t value) {
    PortRequest request{port, width, value};
    return IoControl(kPortWriteRequest, &request, sizeof request, nullptr, 0, nullptr);
}

bool CDeviceBusIo::ReadPort(std::uint32_t port, std::uint32_t width, unsigned char& value) {
    PortRequest request{port, width, 0};
    std::uint32_t answer{};  // the driver puts it over the port field
    if (!IoControl(kPortReadRequest, &request, sizeof request, &answer, sizeof answer, nullptr)) {
        return false;
    }
    value = static_cast<unsigned char>(answer);
    return true;
}
