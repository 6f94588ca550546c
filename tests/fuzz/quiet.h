#pragma once

namespace fuzz {

// Takes the log away. To be called by a target whose code writes lines.
void Quiet();

} // namespace fuzz
