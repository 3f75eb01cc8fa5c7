// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "agent/speaker/SpeakerPorts.h"
#include "agent/speaker/SpeakerRecorder.h"

struct BusIoDriverOptions {
    std::string wavFile;      ///< empty for none
    std::string portLogFile;  ///< empty for none
    /// Called with a line like "2300 Hz for 150 ms" when a tone is over, on the thread that ended it.
    std::function<void(const std::string&)> onTone;
};

/// Stands in for the bus-I/O driver in this process: while an object lives, open, close and ioctl of the program and of
/// every library that it loads serve the node "/dev/pci/smbus" from here (see BusIoSymbols.cpp). Without one they go
/// straight to the system.
///
/// The port log has a line for each access, as in
///     open O_RDWR|O_APPEND|O_CLOEXEC
///     write 0x43 width 1 value 0xB6
///     read 0x61 width 1 value 0x30
///     write 0x80 width 1 value 0x00 refused (ENXIO)
///     request 0x00005401 refused (ENOTTY)
///     close
///
/// One object at a time, built before and destroyed after whatever uses the node. Any thread may use the node.
class CBusIoDriver {
public:
    /// @throws std::system_error that names the file that cannot be written
    explicit CBusIoDriver(BusIoDriverOptions options);
    /// A tone that still sounds ends here.
    ~CBusIoDriver();
    CBusIoDriver(const CBusIoDriver&) = delete;
    CBusIoDriver& operator=(const CBusIoDriver&) = delete;

    /// The object that serves the node, null for none.
    static CBusIoDriver* Active() { return active_.load(std::memory_order_acquire); }
    static bool IsNode(const char* path);

    /// These are the driver's side of the three functions; all results below 0 are negative errno values.
    /// @param fd  a descriptor of the caller's that stands for the node from now on; it has to stay below 1024
    int Opened(int fd, int flags) noexcept;
    /// @return true once for each descriptor that was opened: the caller closes it then
    bool Closing(int fd) noexcept;
    static bool Owns(int fd);
    int Request(unsigned long code, void* argument) noexcept;

private:
    struct Close {
        void operator()(std::FILE* file) const noexcept { std::fclose(file); }
    };
    struct PortRequest;

    int Access(unsigned long code, void* argument);
    void Log(const std::string& line);
    void LogAccess(const char* verb, const PortRequest& request, std::uint32_t value, int error);

    static std::atomic<CBusIoDriver*> active_;

    const std::function<void(const std::string&)> onTone_;
    std::mutex lock_;
    std::unique_ptr<std::FILE, Close> portLog_;
    CSpeakerPorts ports_;
    CSpeakerRecorder recorder_;
};
