// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "agent/core/Agent.h"
#include "agent/core/AnswerTable.h"
#include "agent/core/Ledger.h"

/// What the module is told, and answered, of one component.
struct ComponentEvent {
    std::uint32_t id;
    std::string name;
    std::string designation;
    std::uint32_t status;        ///< 1 to 3
    std::uint32_t systemStatus;  ///< 1 to 3
    bool withoutMail = false;    ///< its mail went out in an earlier run
};

/// The operations on the module, on the thread that drives it. Each returns when the module has dealt with it.
class CDelivery {
public:
    CDelivery(CAnswerTable& answers, CLedger& ledger) : answers_(answers), ledger_(ledger) {}

    void Deliver(CAgent& agent, const ComponentEvent& event);

    /// @param updates  how many are available
    void DeliverUpdates(CAgent& agent, std::uint32_t updates, std::uint32_t systemStatus);

    /// @return what the module answers
    Command Request(CAgent& agent, Command request);
    void Notice(CAgent& agent, Command notice);

private:
    CAnswerTable& answers_;
    CLedger& ledger_;
};
