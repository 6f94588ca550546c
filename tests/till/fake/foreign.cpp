// A shared object that is no payment library.
extern "C" __attribute__((visibility("default"))) int SomethingElse() { return 0; }
