// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

class CDeviceIoExtensionData;

/// Access bits and creation dispositions of a device, numbered as in the device API that this layer is shaped after.
inline constexpr std::uint32_t kDeviceRead = 0x80000000;
inline constexpr std::uint32_t kDeviceWrite = 0x40000000;
inline constexpr std::uint32_t kCreateNew = 1;
inline constexpr std::uint32_t kCreateAlways = 2;
inline constexpr std::uint32_t kOpenExisting = 3;
inline constexpr std::uint32_t kOpenAlways = 4;
inline constexpr std::uint32_t kTruncateExisting = 5;

// What the others open with; without effect.
inline constexpr std::uint32_t kShareReadWrite = 3;
inline constexpr std::uint32_t kAttributeNormal = 0x80;

/// A device node with a handle-and-request interface over open, close and ioctl.
///
/// The handle belongs to the object (one descriptor, no locking), or to each thread that uses it: in per-thread mode a
/// thread's descriptor is opened by its first getHandle and closed by Close from that thread or when the thread ends,
/// even if the object is gone by then. HAZARD: that last closing runs code of this library, so a thread which holds a
/// descriptor must end before the library is unloaded.
///
/// Nothing throws but the construction (memory for the path). Failures leave an errno value in LastError.
class CDeviceIo {
public:
    static constexpr long long kNoHandle = -1;

    /// Opens nothing yet.
    /// @param path  the device node; null or empty for an object that stays closed
    /// @param access  kDeviceRead, kDeviceWrite
    /// @param shareMode, attributes  stored, without effect
    /// @param creation  one of the dispositions; others add no flag to open
    /// @param perThread  one descriptor for each thread
    /// @param keepOpen  destruction leaves the descriptor open; in per-thread mode that of the destroying thread, until
    ///                  the thread ends
    CDeviceIo(const char* path, std::uint32_t access, std::uint32_t shareMode, std::uint32_t creation,
              std::uint32_t attributes, bool perThread = false, bool keepOpen = false);
    virtual ~CDeviceIo();
    CDeviceIo(const CDeviceIo&) = delete;
    CDeviceIo& operator=(const CDeviceIo&) = delete;

    /// Opens the node unless it is open; in per-thread mode for the calling thread.
    bool Open();

    /// The descriptor, or kNoHandle. In per-thread mode it is the calling thread's, opened now if it has none.
    long long getHandle() const;

    /// Closes the descriptor, in per-thread mode the calling thread's. A failed close releases the descriptor as well.
    /// @return false only when that close fails in per-thread mode; per object LastError alone tells
    bool Close();

    /// Sends a request to a descriptor. The driver works on a copy of the input, as large as the larger of the two
    /// buffers. HAZARD: it must know that size; a request that moves more bytes overruns the copy.
    /// @param handle  the descriptor, as a pointer-sized number
    /// @param returned  gets the driver's result; untouched on failure. May be null.
    /// @param overlapped  ignored
    /// @return false on failure, with errno set
    static bool DeviceIoControl(void* handle, unsigned int code, void* input, unsigned int inputSize, void* output,
                                unsigned int outputSize, unsigned int* returned, void* overlapped);

    /// Sends a request to this device. Without an open handle nothing is sent, and LastError becomes EINVAL unless it
    /// tells already why.
    bool IoControl(unsigned int code, void* input, unsigned int inputSize, void* output, unsigned int outputSize,
                   unsigned int* returned);

    /// The errno value of the last failure, 0 for none. In per-thread mode that of any thread.
    std::uint32_t LastError() const { return lastError_; }

    /// Closes the descriptor of a thread that ends.
    /// @param handle  the descriptor as a pointer-sized number, -1 for none
    /// @return false when close failed
    static bool termHandling(void* handle);

protected:
    int OpenNode(std::uint32_t access, std::uint32_t creation) const;
    void SetLastError(int error) const { lastError_ = static_cast<std::uint32_t>(error); }

private:
    long long ThreadHandle() const;
    bool CloseThreadHandle();

    long long handle_ = kNoHandle;
    mutable std::atomic<std::uint32_t> lastError_{};
    CDeviceIoExtensionData* extension_ = nullptr;  // shared with the threads that hold a descriptor
    std::string path_;
    std::uint32_t access_;
    [[maybe_unused]] std::uint32_t shareMode_;
    std::uint32_t creation_;
    [[maybe_unused]] std::uint32_t attributes_;
    bool perThread_;
    bool keepOpen_;
};
