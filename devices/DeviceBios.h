// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "devices/DeviceIo.h"
#include "platform/files/UniqueFd.h"

/// A device through which the firmware's memory is reached.
class CDeviceBiosBase : public CDeviceIo {
public:
    /// @param path  the device node; null leaves it unopened
    explicit CDeviceBiosBase(const char* path);
};

/// Maps physical memory into the process, one piece at a time. For one thread at a time.
class CDeviceBios : public CDeviceBiosBase {
public:
    /// @param path  the device to connect to; mapping needs the connection
    /// @param memoryDevice  the node whose offsets are physical addresses; not copied
    explicit CDeviceBios(const char* path, const char* memoryDevice = "/dev/mem");
    ~CDeviceBios() override;
    CDeviceBios(const CDeviceBios&) = delete;
    CDeviceBios& operator=(const CDeviceBios&) = delete;

    bool IsConnected() const { return connected_; }

    /// Maps `length` bytes at a physical address and gives up what was mapped before.
    /// @param high  traced only: addresses have 32 bits
    /// @param low  0 is refused
    /// @param length  in bytes; 0, or more than 32 bits hold together with the offset in the page, is refused
    /// @return where the byte at `low` is found, until the next mapping, unmapping or the end of the object; null on
    ///         failure, see LastError
    virtual void* MapPhysicalMemory(unsigned int high, unsigned int low, unsigned long length, bool readWrite);

    /// @return true always; also when nothing is mapped
    virtual bool UnmapPhysicalMemory();

private:
    bool OpenMemoryDevice(bool readWrite);
    void Unmap();
    void* Fail(int error);

    bool connected_{};
    CUniqueFd memory_;
    std::uint32_t mappedBase_{};    // physical, page-aligned
    std::uint32_t mappedLength_{};  // from that base
    void* mapped_ = nullptr;
    const char* const memoryDevice_;
};
