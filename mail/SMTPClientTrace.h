#pragma once

#include "platform/Trace.h"

/// What the traces of the SMTP client begin with.
#define SMTP_CLIENT_TAG "\nCSMTPClient                : "
