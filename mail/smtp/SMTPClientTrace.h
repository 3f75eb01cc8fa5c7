#pragma once

#include "platform/diagnostics/Trace.h"

/// What the traces of the SMTP client begin with.
#define SMTP_CLIENT_TAG "\nCSMTPClient                : "
