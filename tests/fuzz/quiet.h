#pragma once

namespace fuzz {

// Takes the log away. To be called by a target whose code writes lines.
void Quiet();

// Lets so many of the next system calls (open, flock, pwrite, readv, writev, poll, pipe2) fail with this code. 0 ends it.
void Weather(int times, int errorCode);

} // namespace fuzz
