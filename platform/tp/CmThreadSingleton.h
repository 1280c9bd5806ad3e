// Named loop threads shared by several users, counted: the last release stops the thread.
#pragma once

#include "tp/CmThread.h"

class ACmThreadSingletonFactory {
public:
    // Creates the thread on first use of the name; every call must be matched by a release.
    static ACmThread* GetSingletonThread(const char* name);
    // (sic) the name the callers use.
    static void ResleseSingletonThread(ACmThread* thread);
    static int UserCount(const char* name);
};
