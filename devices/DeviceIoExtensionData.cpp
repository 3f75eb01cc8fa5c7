// SPDX-License-Identifier: Apache-2.0
#include "devices/DeviceIoExtensionData.h"

#include <cerrno>
#include <memory>
#include <new>

namespace {

/// Thread keys and the termination routine carry descriptors in a pointer's width.
void* AsPointer(long long number) {
    return reinterpret_cast<void*>(static_cast<std::intptr_t>(number));  // NOLINT(performance-no-int-to-ptr)
}

}  // namespace

CDeviceIoExtensionData* CDeviceIoExtensionData::Create(TerminationRoutine terminate) {
    std::unique_ptr<CDeviceIoExtensionData> data(new (std::nothrow) CDeviceIoExtensionData(terminate));
    if (data == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    return data->CreateKeys() ? data.release() : nullptr;
}

CDeviceIoExtensionData::~CDeviceIoExtensionData() {
    if (keys_ > 1) {
        ::pthread_key_delete(descriptorKey_);
    }
    if (keys_ > 0) {
        ::pthread_key_delete(selfKey_);
    }
}

bool CDeviceIoExtensionData::CreateKeys() {
    const int error = ::pthread_key_create(&selfKey_, &termination);
    if (error != 0) {
        errno = error;
        return false;
    }
    keys_ = 1;
    return CreateDescriptorKey();
}

/// When a thread ends, glibc clears its values in the order of the keys' numbers, also those without a destructor. The
/// hook finds the descriptor only if the descriptor's key has the higher number. The lowest free number is given out,
/// so that is nearly always so; when another thread freed a lower one in between, that one is held while trying again.
bool CDeviceIoExtensionData::CreateDescriptorKey() {
    pthread_key_t key{};
    const int error = ::pthread_key_create(&key, nullptr);
    if (error != 0) {
        errno = error;
        return false;
    }
    if (key > selfKey_) {
        descriptorKey_ = key;
        keys_ = 2;
        return true;
    }
    const bool created = CreateDescriptorKey();
    ::pthread_key_delete(key);
    return created;
}

int CDeviceIoExtensionData::Descriptor() const {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(::pthread_getspecific(descriptorKey_))) - 1;
}

int CDeviceIoExtensionData::Adopt(int fd) {
    int error = ::pthread_setspecific(descriptorKey_, AsPointer(fd + 1LL));
    if (error == 0) {
        error = Register();
    }
    if (error != 0) {
        ForgetDescriptorOnly();
    }
    return error;
}

int CDeviceIoExtensionData::Register() {
    const bool registered = ::pthread_getspecific(selfKey_) != nullptr;
    {
        const CMutexLock lock(mutex_);
        if (closing_) {
            return ECANCELED;
        }
        if (registered) {
            return 0;
        }
        ++openCount_;
    }
    const int error = ::pthread_setspecific(selfKey_, this);
    if (error != 0) {
        CountDown();
    }
    return error;
}

void CDeviceIoExtensionData::Forget() {
    ForgetDescriptorOnly();
    ::pthread_setspecific(selfKey_, nullptr);
    CountDown();
}

void CDeviceIoExtensionData::ForgetDescriptorOnly() {
    ::pthread_setspecific(descriptorKey_, nullptr);
}

void CDeviceIoExtensionData::Release() {
    bool last{};
    {
        const CMutexLock lock(mutex_);
        closing_ = true;
        last = openCount_ == 0;
    }
    if (last) {
        delete this;
    }
}

void CDeviceIoExtensionData::termination(void* extensionData) {
    auto* data = static_cast<CDeviceIoExtensionData*>(extensionData);
    if (!data->terminate_(AsPointer(data->Descriptor()))) {
        return;  // stays counted: the object then lives until the process ends
    }
    // The keys first: once counted down, the object may be destroyed by another thread.
    data->ForgetDescriptorOnly();
    ::pthread_setspecific(data->selfKey_, nullptr);
    if (data->CountDown()) {
        delete data;
    }
}

/// @return true when the caller is to destroy the object, which it alone knows by then
bool CDeviceIoExtensionData::CountDown() {
    const CMutexLock lock(mutex_);
    --openCount_;
    return closing_ && openCount_ == 0;
}
