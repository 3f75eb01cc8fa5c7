// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <sys/stat.h>

#include "service/control/ControlClient.h"

/// The control socket: mode 0660, of the group em-alert where there is one. One thread, the loop's.
class CControlServer {
public:
    /// @throw CAgentError when the socket cannot be made, and when another service answers there
    CControlServer(CLoop& loop, std::string path, CControlClient::OnLine onLine);

    /// Removes the socket, unless another service has put its own in its place.
    ~CControlServer();
    CControlServer(const CControlServer&) = delete;
    CControlServer& operator=(const CControlServer&) = delete;

    /// @return null when it has gone
    CControlClient* Find(std::uint64_t id);

    template <typename Work>
    void ForEach(Work work) {
        for (const auto& [id, client] : clients_) {
            work(*client);
        }
    }

private:
    void Accept();
    void Pause(int error);

    CLoop& loop_;
    const std::string path_;
    const CControlClient::OnLine onLine_;
    CUniqueFd socket_;
    struct stat own_ {};  // of the socket that it has made
    std::map<std::uint64_t, std::unique_ptr<CControlClient>> clients_;
    std::uint64_t lastId_ = 0;
    CLoopSource source_;
    CLoopSource pause_;
    int acceptError_ = 0;  // as it was told
};
