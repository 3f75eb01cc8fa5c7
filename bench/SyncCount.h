// SPDX-License-Identifier: Apache-2.0
#pragma once

/// How often this program has called fsync: it replaces the function by a counting one.
int SyncCalls();
