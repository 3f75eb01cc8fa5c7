#include "platform/ModuleObjects.h"

ModuleObjects moduleObjects;

ModuleObjects::ModuleObjects() {
    try {
        debugClient.Initialise("/etc/kestrel/HostwardenSuite/TraceConfig");
    } catch (...) {  // a host must be able to load the library whatever its trace configuration holds
        debugClient.SetDebugLevel(0);
    }
}
