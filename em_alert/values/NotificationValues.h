// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "notification/NotificationConfig.h"
#include "sip/Vocabulary.h"

class SipJson;

/// One value of the notification file that requests can name: how it is read and written.
struct NotificationValue {
    unsigned int id;  ///< "OE" of the request

    /// Puts the value and status 0 into the reply.
    /// @return false, with the reply unchanged, when the file does not hold the value
    bool (*read)(CNotificationConfig&, int server, SipJson& reply);

    /// Takes the value from the request into the document. Null: the value follows from others, writes change nothing.
    /// @return false when the request's data does not hold a value, or it cannot be stored
    bool (*write)(CNotificationConfig&, int server, const SipJson& request);

    bool IsPerServer() const { return FindConfigurationValue(id)->isPerServer; }
};

/// @return null when there is no such value
const NotificationValue* FindNotificationValue(unsigned int id);
