// SPDX-License-Identifier: Apache-2.0
#include "devices/DeviceIo.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/ioctl.h>
#include <unistd.h>

#include "devices/DeviceIoExtensionData.h"
#include "platform/diagnostics/Trace.h"
#include "platform/files/UniqueFd.h"

namespace {

/// Decimal on purpose, and part of the contract with the driver's authors: it only matters where open creates a file,
/// which device nodes never are.
constexpr mode_t kOpenMode = 600;

int AccessFlags(std::uint32_t access) {
    const bool read = (access & kDeviceRead) != 0;
    const bool write = (access & kDeviceWrite) != 0;
    if (write) {
        return read ? O_RDWR : O_WRONLY;
    }
    return O_RDONLY;
}

int CreationFlags(std::uint32_t creation) {
    switch (creation) {
        case kCreateNew:
            return O_CREAT | O_EXCL;
        case kCreateAlways:
            return O_CREAT | O_TRUNC;
        case kOpenExisting:
            return O_APPEND;
        case kOpenAlways:
            return O_CREAT | O_APPEND;
        case kTruncateExisting:
            return O_TRUNC;
        default:
            return 0;
    }
}

int AsDescriptor(void* handle) {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(handle));
}

struct Answer {
    bool isDone;
    int number;  // the driver's result; of a refused request the errno value
};

Answer SendRequest(int fd, unsigned int code, void* input, unsigned int inputSize, void* output,
                   unsigned int outputSize) {
    // The trace shows eight bytes, however small the buffers are.
    const std::size_t size = std::max({std::size_t{inputSize}, std::size_t{outputSize}, sizeof(unsigned long)});
    const std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[size]());
    if (buffer == nullptr) {
        return {false, ENOMEM};
    }
    if (input != nullptr) {
        std::memcpy(buffer.get(), input, inputSize);
    }
    unsigned long firstBytes{};
    std::memcpy(&firstBytes, buffer.get(), sizeof firstBytes);
    EM_TRACE(4, "ioctl-call: dev = 0x%08x, code = 0x%08x, arg = %p, *arg = 0x%016lx\n", static_cast<unsigned int>(fd),
             code, static_cast<void*>(buffer.get()), firstBytes);
    EM_TRACE(4, "ioctl-call: lpInBufferSize = %d\n", static_cast<int>(inputSize));

    const int result = ::ioctl(fd, code, buffer.get());
    if (result < 0) {
        const int error = errno;
        EM_TRACE(4, "ioctl-call failed: ERROR, errno = %d (0x%08x)\n", error, static_cast<unsigned int>(error));
        return {false, error};
    }
    EM_TRACE(4, "ioctl-call: bytes returned = %d\n", result);
    if (output != nullptr) {
        std::memcpy(output, buffer.get(), outputSize);
    }
    return {true, result};
}

}  // namespace

CDeviceIo::CDeviceIo(const char* path, std::uint32_t access, std::uint32_t shareMode, std::uint32_t creation,
                     std::uint32_t attributes, bool perThread, bool keepOpen)
    : path_(path != nullptr ? path : ""),
      access_(access),
      shareMode_(shareMode),
      creation_(creation),
      attributes_(attributes),
      perThread_(perThread),
      keepOpen_(keepOpen) {
    if (perThread_) {
        extension_ = CDeviceIoExtensionData::Create(&CDeviceIo::termHandling);
        SetLastError(extension_ == nullptr ? errno : 0);
    }
}

CDeviceIo::~CDeviceIo() {
    if (!keepOpen_) {
        Close();
    }
    if (extension_ != nullptr) {
        extension_->Release();
    }
}

int CDeviceIo::OpenNode(std::uint32_t access, std::uint32_t creation) const {
    return ::open(path_.c_str(), AccessFlags(access) | CreationFlags(creation) | O_CLOEXEC, kOpenMode);
}

bool CDeviceIo::Open() {
    if (perThread_) {
        return getHandle() != kNoHandle;
    }
    if (handle_ != kNoHandle) {
        return true;
    }
    handle_ = OpenNode(access_, creation_);
    SetLastError(handle_ == kNoHandle ? errno : 0);
    EM_TRACE(5, "\nCDeviceIo::Open: Device %s %s opened, fd=%d", path_.c_str(), handle_ == kNoHandle ? "NOT" : "",
             static_cast<int>(handle_));
    return handle_ != kNoHandle;
}

long long CDeviceIo::getHandle() const {
    return perThread_ ? ThreadHandle() : handle_;
}

long long CDeviceIo::ThreadHandle() const {
    if (extension_ == nullptr) {
        return kNoHandle;
    }
    const int held = extension_->Descriptor();
    if (held != kNoHandle || path_.empty()) {
        return held;
    }
    CUniqueFd fd(OpenNode(access_, creation_));
    if (!fd) {
        SetLastError(errno);
        EM_TRACE(5, "\nCDeviceIo::getHandle: Device %s %s opened, fd=%d", path_.c_str(), "NOT", -1);
        return kNoHandle;
    }
    const int error = extension_->Adopt(fd.Get());
    if (error != 0) {
        SetLastError(error);
        const int number = fd.Get();
        fd.Reset();
        EM_TRACE(5, "\nCDeviceIo::getHandle: Device %s closed, fd=%d", path_.c_str(), number);
        return kNoHandle;
    }
    EM_TRACE(5, "\nCDeviceIo::getHandle: Device %s %s opened, fd=%d", path_.c_str(), "", fd.Get());
    return fd.Release();
}

bool CDeviceIo::Close() {
    if (perThread_) {
        return CloseThreadHandle();
    }
    if (handle_ != kNoHandle) {
        const int fd = static_cast<int>(handle_);
        SetLastError(::close(fd) == 0 ? 0 : errno);
        EM_TRACE(5, "\nCDeviceIo::Close: Device closed, fd=%d", fd);
        handle_ = kNoHandle;
    }
    return true;
}

bool CDeviceIo::CloseThreadHandle() {
    const int fd = extension_ != nullptr ? extension_->Descriptor() : -1;
    if (fd == kNoHandle) {
        return true;
    }
    EM_TRACE(5, "\nCDeviceIo::Close (ts): Device %s closed, fd=%d", path_.c_str(), fd);
    if (::close(fd) != 0) {
        SetLastError(errno);
        extension_->ForgetDescriptorOnly();
        return false;
    }
    extension_->Forget();
    return true;
}

bool CDeviceIo::DeviceIoControl(void* handle, unsigned int code, void* input, unsigned int inputSize, void* output,
                                unsigned int outputSize, unsigned int* returned, void* /*overlapped*/) {
    const Answer answer = SendRequest(AsDescriptor(handle), code, input, inputSize, output, outputSize);
    if (!answer.isDone) {
        errno = answer.number;
        return false;
    }
    if (returned != nullptr) {
        *returned = static_cast<unsigned int>(answer.number);
    }
    return true;
}

bool CDeviceIo::IoControl(unsigned int code, void* input, unsigned int inputSize, void* output, unsigned int outputSize,
                          unsigned int* returned) {
    const long long handle = getHandle();
    if (handle == kNoHandle) {
        std::uint32_t none = 0;
        lastError_.compare_exchange_strong(none, EINVAL);
        return false;
    }
    EM_TRACE(4, "CDeviceIo::IoControl: calling ioctl() directly...\n");
    auto* const pointer =
        reinterpret_cast<void*>(static_cast<std::intptr_t>(handle));  // NOLINT(performance-no-int-to-ptr)
    if (!DeviceIoControl(pointer, code, input, inputSize, output, outputSize, returned, nullptr)) {
        SetLastError(errno);
        return false;
    }
    return true;
}

bool CDeviceIo::termHandling(void* handle) {
    const int fd = AsDescriptor(handle);
    if (fd == kNoHandle) {
        return true;
    }
    const bool closed = ::close(fd) == 0;
    EM_TRACE(5, "\nCDeviceIo::termHandling: Device closed, fd=%d", fd);
    return closed;
}
