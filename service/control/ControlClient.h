// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/files/UniqueFd.h"
#include "service/loop/Loop.h"

/// One connection to the control socket: a line in, lines out, of any length. Its next line waits while it has much
/// (64 KiB) to read. It is dropped when it sends a line of more than 64 KiB, when there is news for one that has 4 MiB
/// to read, and when one that has sent its last line has all its answers. One thread, the loop's.
class CControlClient {
public:
    using OnLine = std::function<void(CControlClient& client, const std::string& line)>;
    using OnGone = std::function<void(std::uint64_t id)>;

    CControlClient(CLoop& loop, CUniqueFd socket, std::uint64_t id, OnLine onLine, OnGone onGone);
    ~CControlClient() = default;
    CControlClient(const CControlClient&) = delete;
    CControlClient& operator=(const CControlClient&) = delete;

    std::uint64_t Id() const { return id_; }

    /// Who is at the other end, for the journal.
    const std::string& Peer() const { return peer_; }

    /// @param json  one object, without a line end
    void Send(const std::string& json);

    /// @param kind  of a transcript's entry
    /// @param message  {"SIP":...}
    void SendMessage(const std::string& kind, const std::string& message);

    void SendError(const std::string& sentence);

    /// An answer comes later. With many owed (16), the next line waits.
    void Owe();

    /// One of those is sent, or does not come after all.
    void Settle();

    /// A request to the module has begun, and has been answered.
    void BeginRequest() { ++requests_; }
    void EndRequest();
    bool HasRequests() const { return requests_ > 0; }

    bool isSubscribed = false;

private:
    void OnReady();
    void Read();
    void Flush();
    bool MayRead() const;
    void Watch();
    void Drop();

    CLoop& loop_;
    const CUniqueFd socket_;
    const std::uint64_t id_;
    const OnLine onLine_;
    const OnGone onGone_;
    const std::string peer_;
    std::string in_;
    std::string out_;
    std::uint32_t owed_ = 0;      // answers that come later
    std::uint32_t requests_ = 0;  // whose answers the module sends when it likes
    bool isAtEnd_ = false;        // it sends no more lines, but reads
    bool isDropped_ = false;
    CLoopSource source_;
    CLoopSource dropping_;
};
