// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/config/ServiceConfig.h"

/// Runs each check once, side by side, and prints "NAME: STATUS - text" for each as it ends.
/// @return false when any could not be started or did not answer in time, or the results could not be printed
bool CheckOnce(const ServiceConfig& config);
