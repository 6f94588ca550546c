#include "road.h"

namespace zat::client {

Outcome Road::Resume(Listener&) { return Exchange(eEFTPwidNone).Stop(Why::NoExchange, Verdict::Refused); }

} // namespace zat::client
