// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/files/UniqueFd.h"
#include "service/loop/Loop.h"

/// One connection to the control socket: a line in, lines out, of any length. Its next line waits while it has much
/// (64 KiB) to read. It is dropped when it sends a line of more than 64 KiB, and when there is news for one that has 4
/// MiB to read. One thread, the loop's.
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

    bool isSubscribed = false;
    std::uint32_t underWay = 0;  ///< requests that are not answered yet

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
    bool isDropped_ = false;
    CLoopSource source_;
    CLoopSource dropping_;
};
