#include "platform/threads/ModuleObjects.h"

ModuleObjects moduleObjects;
