// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "devices/DeviceIo.h"

/// The node of the platform's bus-I/O driver, connected from construction to destruction. For one thread at a time.
class CDeviceBusIoBase : public CDeviceIo {
public:
    /// @param path  the driver's node; null leaves the object unconnected
    explicit CDeviceBusIoBase(const char* path);

    bool IsConnected() const { return connected_; }

private:
    bool connected_{};
};

/// I/O-port access through the bus-I/O driver.
class CDeviceBusIo : public CDeviceBusIoBase {
public:
    using CDeviceBusIoBase::CDeviceBusIoBase;

    /// @param width  bytes of the access, as the driver takes them: 1 or 4
    /// @return false on failure, see LastError
    bool WritePort(std::uint32_t port, std::uint32_t width, std::uint32_t value);

    /// @param value  gets the low byte of what was read; untouched on failure
    bool ReadPort(std::uint32_t port, std::uint32_t width, unsigned char& value);
};
