// The order in which the object's globals come to life, fixed across files. Without it the linker's file order
// would decide, and a logger that is built before the launcher state would be destroyed before it too: the
// state's destructor, which waits for the terminal module, could then write to a dead log.
//
// The first to be built is the last to be destroyed.
#pragma once

// Priorities up to 100 belong to the language's runtime, and the default is 65535.
#define ZAT_INIT_LAUNCHER __attribute__((init_priority(1001))) // oMSGD
#define ZAT_INIT_LOGGER __attribute__((init_priority(1002)))   // libautoinit, which makes poGSLog
#define ZAT_INIT_NULL_ID __attribute__((init_priority(1003)))  // SQNull
