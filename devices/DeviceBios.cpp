// SPDX-License-Identifier: Apache-2.0
#include "devices/DeviceBios.h"

#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/diagnostics/Trace.h"

CDeviceBiosBase::CDeviceBiosBase(const char* path)
    : CDeviceIo(path, kDeviceRead, kShareReadWrite, kOpenExisting, kAttributeNormal) {}

CDeviceBios::CDeviceBios(const char* path, const char* memoryDevice)
    : CDeviceBiosBase(path), memoryDevice_(memoryDevice) {
    connected_ = path != nullptr && Open();
}

CDeviceBios::~CDeviceBios() {
    EM_TRACE(5, "\nCDeviceBios         : ~CDeviceBios()");
    EM_TRACE(4, "\nCDeviceBiosBase     :   disconnect from BIOS device");
    Unmap();
}

void* CDeviceBios::MapPhysicalMemory(unsigned int high, unsigned int low, unsigned long length, bool readWrite) {
    EM_TRACE(4, "\nCDeviceBios (Map) : Mapping physical memory 0x%0X%08X len 0x%05X to the user process", high, low,
             static_cast<unsigned int>(length));
    EM_TRACE(4, "\nCDeviceBios (Map) :   access mode = %s", readWrite ? "read-write" : "read-only");
    if (!connected_) {
        EM_TRACE(1, "\n\nCDeviceBios (Map) : ## ERROR: DeviceBios is not connected - fix this!!\n");
        SetLastError(ENOTCONN);
        return nullptr;
    }
    if (low == 0 || length == 0) {
        EM_TRACE(1,
                 "\nCDeviceBios (Map)   : ## ERROR: Physical address or size is 0 for physical memory mapping - fix "
                 "this!!\n");
        return Fail(EINVAL);
    }
    if (mapped_ != nullptr) {
        EM_TRACE(2,
                 "\nCDeviceBios (Map)   : ## WARNING! Mapped physical memory already existing - will be unmapped "
                 "before new mapping performed!");
        UnmapPhysicalMemory();
    }
    if (!OpenMemoryDevice(readWrite)) {
        return nullptr;
    }
    const auto pageSize = static_cast<unsigned int>(::getpagesize());
    EM_TRACE(4, "\nCDeviceBios (Map) : physical page size is = %d", static_cast<int>(pageSize));
    const unsigned int offset = low % pageSize;
    EM_TRACE(4, "\nCDeviceBios (Map) : offset in the page is = 0x%X", offset);
    if (length > std::numeric_limits<std::uint32_t>::max() - offset) {
        return Fail(EINVAL);
    }

    const auto mapLength = static_cast<std::uint32_t>(length + offset);
    void* const address = ::mmap(nullptr, mapLength, readWrite ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED,
                                 memory_.Get(), static_cast<off_t>(low - offset));
    if (address == MAP_FAILED) {
        return Fail(errno);
    }
    mappedBase_ = low - offset;
    mappedLength_ = mapLength;
    mapped_ = address;
    EM_TRACE(4, "CDeviceBios (Map) : return mapped address = 0x%p\n", mapped_);
    return static_cast<unsigned char*>(mapped_) + offset;
}

bool CDeviceBios::OpenMemoryDevice(bool readWrite) {
    EM_TRACE(4, "\nCDeviceBios (Map) : open memory device %s...", memoryDevice_);
    memory_.Reset(::open(memoryDevice_, (readWrite ? O_RDWR : O_RDONLY) | O_CLOEXEC));
    if (!memory_) {
        const int error = errno;
        EM_TRACE(1, "\n\n## ERROR: Opening of /dev/mem failed (errno=%d)!", error);
        Fail(error);
        return false;
    }
    EM_TRACE(4, "\nCDeviceBios (Map) : memory device opened %s (fd=%d)", memoryDevice_, memory_.Get());
    return true;
}

bool CDeviceBios::UnmapPhysicalMemory() {
    Unmap();
    return true;
}

void CDeviceBios::Unmap() {
    if (mapped_ != nullptr) {
        ::munmap(mapped_, mappedLength_);
        EM_TRACE(3, "CDeviceBios (Unmap) : unmapped 0x%x bytes at 0x%x from 0x%p on %d...\n", mappedLength_,
                 mappedBase_, mapped_, memory_.Get());
    }
    memory_.Reset();
    mapped_ = nullptr;
}

/// Whatever the reason, a failed mapping leaves nothing mapped or open.
void* CDeviceBios::Fail(int error) {
    Unmap();
    SetLastError(error);
    return nullptr;
}
