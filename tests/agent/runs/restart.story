The library is loaded
Its four functions are found
It has told its name (FAKE)
The module is created
The module has described itself (FAKE: xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx)
The module knows the server's cabinet number (7)
The module is started
The module has been notified (SCN_SWITCH_REQUEST_ENABLED)
The module asks for configuration value "beep alert" (0xE001-0x0400). Answer: status 0 (done), data 0
The module disables its events
The module knows that the agent runs
Withheld, the module takes no events: component status (0x2322)
The module fires the event pending alert (0x2240): status 255 (event), data 1
The module has taken component status (0x2322): no status, no data
The module asks for operation (0x1234), object 1 and does not wait
The module answers operation (0x9001), object 1: status 22 (answer follows)
The module has been notified (SCN_SWITCH_SHUTDOWN)
The module is stopped
The module is deleted
The library is closed
The library is gone from memory
The library is loaded
Its four functions are found
It has told its name (FAKE)
The module is created
The module has described itself (FAKE: xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx)
The module knows the server's cabinet number (7)
The module is started
The module has been notified (SCN_SWITCH_REQUEST_ENABLED)
The module asks for configuration value "beep alert" (0xE001-0x0400). Answer: status 0 (done), data 1
The module enables its events
The module knows that the agent runs
The module fires the event pending alert (0x2240): status 255 (event), data 1
The module has taken component status (0x2322): no status, no data
The module forwards operation (0x1234) to module 3:4
The module answers operation (0x9003): no status, no data
The module has been notified (code 1)
The module has been notified (code 2)
The module has been notified (code 3)
The module has been notified (SCN_SWITCH_SHUTDOWN)
The module is stopped
The module is deleted
The library is closed
The library is gone from memory
The library is loaded
Its four functions are found
It has told its name (FAKE)
The module is created
The module has described itself (FAKE: xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx)
The module knows the server's cabinet number (7)
The module is started
The module has been notified (SCN_SWITCH_REQUEST_ENABLED)
The module asks for configuration value "beep alert" (0xE001-0x0400). Answer: status 0 (done)
The module knows that the agent runs
Withheld, the module takes no events: component status (0x2322)
The module has been notified (SCN_SWITCH_SHUTDOWN)
The module is stopped
The module is deleted
The library is closed
The library is gone from memory
