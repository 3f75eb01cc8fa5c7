// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "em_alert/values/NotificationSettings.h"

class CAgentLink;

/// Adds the mail servers of the baseboard management controller, as the agent knows them, without log-in. No flow of
/// the module uses them.
void ImportControllerMailServers(CAgentLink& link, SmtpSettingsMap& map);
