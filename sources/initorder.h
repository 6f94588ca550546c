// The order in which the object's globals come to life, fixed across files, where the linker's order would decide
// otherwise. They end in reverse: the launcher state last, because its destructor waits for a module that still runs,
// as long as a payment takes. It writes nothing, and nobody finds the other globals half destroyed meanwhile.
#pragma once

// Priorities up to 100 belong to the language's runtime, and the default is 65535.
#define ZAT_INIT_LAUNCHER __attribute__((init_priority(1001))) // oMSGD
#define ZAT_INIT_LOGGER __attribute__((init_priority(1002)))   // libautoinit, which makes poGSLog
#define ZAT_INIT_NULL_ID __attribute__((init_priority(1003)))  // SQNull
