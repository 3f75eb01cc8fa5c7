The library is loaded
Its four functions are found
It has told its name (FAKE)
The module is created
The module has described itself (FAKE: xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx)
The module knows the server's cabinet number (7)
The module is started
The module has been notified (SCN_SWITCH_REQUEST_ENABLED)
The module asks for configuration value "beep alert" (0xE001-0x0400). Answer: status 1 (not handled)
The module knows that the agent runs
The module answers operation (0x0001): status 20 (not for this server), data "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx", refused
The module answers operation (0x0001): status 20 (not for this server), data "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx..., refused
The module answers operation (0x0001): status 20 (not for this server), data "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx..., refused
The module answers operation (0x0001): status 20 (not for this server), data "\"[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[", refused
The module answers configuration value "password" (0xE001-0x0439): status 20 (not for this server), data hidden, refused
The module answers change of configuration value "password" (0xE002-0x0439): status 20 (not for this server), data hidden, refused
The module answers operation (0xE003-0x0439): status 20 (not for this server), data "geheim", refused
The module answers configuration value "user name" (0xE001-0x0438): status 20 (not for this server), data "shown", refused
The module has been notified (SCN_SWITCH_SHUTDOWN)
The module is stopped
The module is deleted
The library is closed
The library is gone from memory
