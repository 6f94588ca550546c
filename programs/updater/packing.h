// The compressions an update file may use: those that carry a check sum over the bytes themselves. A tar
// archive checks its headers only, so without it a damaged program would be unpacked as if it were whole.
#pragma once

struct archive;

namespace zat {

// Reads a compressed file to its end and tells whether every check sum in it is right and nothing is missing.
// Complains when not. The descriptor is left at the file's beginning.
bool PackingWhole(int fd);

// Makes a libarchive reader accept these compressions and no other.
void AllowPackings(archive* poReader);

} // namespace zat
