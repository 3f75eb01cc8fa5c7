// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <pthread.h>

#include "platform/Mutex.h"

/// The per-thread descriptors of one device object: shared by that object and by every thread that holds one of its
/// descriptors. Whoever of them is the last destroys it.
class CDeviceIoExtensionData {
public:
    /// Closes a descriptor, passed as a pointer-sized number; -1 for none. True on success.
    using TerminationRoutine = bool (*)(void* handle);

    /// @return null, with errno set, when the process has no thread keys left or no memory
    static CDeviceIoExtensionData* Create(TerminationRoutine terminate);

    /// Keys that were created are deleted; use Release.
    virtual ~CDeviceIoExtensionData();
    CDeviceIoExtensionData(const CDeviceIoExtensionData&) = delete;
    CDeviceIoExtensionData& operator=(const CDeviceIoExtensionData&) = delete;

    /// The calling thread's descriptor, -1 for none.
    int Descriptor() const;

    /// Makes `fd` the calling thread's descriptor, to be closed when the thread ends.
    /// @return 0, or an errno value (ECANCELED after Release); the descriptor then stays the caller's
    int Adopt(int fd);

    /// The calling thread's descriptor is no longer to be closed at its end.
    void Forget();

    /// Like Forget for a descriptor whose close failed: it is never closed a second time, since the number may be
    /// someone else's by now, but the thread stays counted until it ends.
    void ForgetDescriptorOnly();

    /// The owning device object is gone; nothing may be called by it after this.
    void Release();

    /// The hook that runs at the end of each registered thread.
    static void termination(void* extensionData);

private:
    explicit CDeviceIoExtensionData(TerminationRoutine terminate) : terminate_(terminate) {}

    bool CreateKeys();
    bool CreateDescriptorKey();
    int Register();
    bool CountDown();

    TerminationRoutine terminate_;
    pthread_key_t descriptorKey_{};  // the descriptor plus 1
    pthread_key_t selfKey_{};        // this object; its destructor is the thread-exit hook
    CMutex mutex_;
    std::uint32_t openCount_ EM_GUARDED_BY(mutex_) = 0;
    bool closing_ EM_GUARDED_BY(mutex_) = false;
    unsigned int keys_ = 0;  // how many of the two exist, the hook's first
};
