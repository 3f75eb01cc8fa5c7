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
The module asks for operation (0x1234-0x0001), object 2. Answer: status 0 (done), data "exact"
The module answers operation (0x9002-0x0001), object 2: status 0 (done)
The module asks for operation (0x1234-0x0001). Answer: status 9
The module answers operation (0x9002-0x0001): status 0 (done)
The module asks for operation (0x1234), object 5. Answer: status 0 (done), data [1]
The module answers operation (0x9002), object 5: status 0 (done)
The module asks for operation (0x1234-0x0001), object 1. Answer: status 9
The module answers operation (0x9002-0x0001), object 1: status 0 (done)
The module asks for operation (0x1234-0x0001), object 1. Answer: status 1 (not handled)
The module answers operation (0x9002-0x0001), object 1: status 0 (done), data "asked"
The module asks for operation (0x1234-0x0001). Answer: status 9
The module answers operation (0x9002-0x0001): status 0 (done), data 1
The module asks for operation (0x1234), object 5. Answer: status 0 (done), data "set"
The module answers operation (0x9002), object 5: status 0 (done)
The module asks for operation (0x1234-0x0001), object 2. Answer: status 0 (done), data "exact"
The module answers operation (0x9002-0x0001), object 2: status 0 (done)
The module asks for operation (0x1234). Answer: status 0 (done), data "set"
The module answers operation (0x9002): status 0 (done)
The module asks for operation (0x1234-0x0002). Answer: status 8
The module answers operation (0x9002-0x0002): status 0 (done)
The module asks for operation (0x1234-0x0001), object 1. Answer: status 1 (not handled), data "new"
The module answers operation (0x9002-0x0001), object 1: status 0 (done)
The module asks for operation (0x1234-0x0001). Answer: status 0 (done), data {"no":"object"}
The module answers operation (0x9002-0x0001): status 0 (done)
The module asks for operation (0x1234-0x0001). Answer: status 0 (done), data []
The module answers operation (0x9002-0x0001): status 0 (done)
The module asks for operation (0x1234-0x0001). Answer: status 0 (done), data []
The module answers operation (0x9002-0x0001): status 0 (done)
The module has been notified (SCN_SWITCH_SHUTDOWN)
The module is stopped
The module is deleted
The library is closed
The library is gone from memory
