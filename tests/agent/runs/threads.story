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
The module asks for operation (0x1234) and does not wait
The module answers operation (0x9001): status 22 (answer follows)
The module replies to operation (0x1234): status 1 (not handled)
The module has taken operation (0x1234): status 1 (not handled)
The module asks for operation (0x1234) and does not wait
The module answers operation (0x9001): status 22 (answer follows)
The module asks for operation (0x1234) and does not wait
The module answers operation (0x9001): status 22 (answer follows)
The module replies to operation (0x1234): status 1 (not handled)
The module has taken operation (0x1234): status 1 (not handled)
The module replies to operation (0x1234): status 1 (not handled)
The module has taken operation (0x1234): status 1 (not handled)
The module has been notified (SCN_SWITCH_SHUTDOWN)
The module is stopped
The module is deleted
The library is closed
The library is gone from memory
