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
The module asks for operation (0x1234) and does not wait
The module answers operation (0x9001): status 22 (answer follows)
The module replies to operation (0x1234): status 12, data "late"
The module has taken operation (0x1234): status 12, data "late"
The module fires the event pending alert (0x2240): status 255 (event), data 1
The module has taken component status (0x2322): data 2
The module fires the event pending alert (0x2240): status 255 (event), data 1
The module has taken component status (0x2322-0x000F), object 12: status 3, data {"a":[1,-2,1.5,null,true,{"RAW":[1,2,3]}],"b":"ä\u0001\n"}
The module forwards operation (0x1234) to module 3:4
The module answers operation (0x9003): no status, no data
The module answers operation (0x0005): status 20 (not for this server), refused
The module replies to operation (0x9001): data ""
The module has taken operation (0x9001): data ""
The module replies to a message without operation code: no status, no data
The module has taken a message without operation code: no status, no data
The module answers a message without operation code: status 20 (not for this server), refused
The module asks for operation (0x1234) and does not wait
The module answers operation (0x9001): status 22 (answer follows)
The module asks for operation (0x1234) and does not wait
The module answers operation (0x9001): status 22 (answer follows)
The module replies to operation (0x1234): status 12, data "late"
The module has taken operation (0x1234): status 12, data "late"
The module replies to operation (0x1234): status 12, data "late"
The module has taken operation (0x1234): status 12, data "late"
The module has been notified (SCN_SYSTEM_SHUTDOWN)
The module has been notified (SCN_POWERSTATE_SUSPEND)
The module has been notified (SCN_POWERSTATE_STANDBY)
The module has been notified (SCN_POWERSTATE_RESUME)
The module has been notified (SCN_POWERSTATE_AC_OFFLINE)
The module has been notified (SCN_POWERSTATE_AC_ONLINE)
The module has been notified (code 5)
The module has been notified (SCN_SWITCH_SHUTDOWN)
The module is stopped
The module is deleted
The library is closed
The library is gone from memory
