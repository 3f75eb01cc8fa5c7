// SPDX-License-Identifier: Apache-2.0
#include "platform/threads/ModuleObjects.h"

ModuleObjects moduleObjects;
