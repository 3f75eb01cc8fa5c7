// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/config/ServiceConfig.h"

/// Runs each check once, side by side, and prints "NAME: STATUS - text" for each as it ends. SIGTERM, SIGINT and
/// SIGHUP, which must be blocked, and an output that nobody reads end it with what runs; SIGPIPE must be ignored.
/// @return false when it was ended so, or any could not be started, crashed or did not answer in time
bool CheckOnce(const ServiceConfig& config);
