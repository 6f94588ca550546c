// The log as one page: a strip of time with a bar for each exchange, and every exchange with what happened in it.
#pragma once
#include "exchanges.h"

namespace zat::tool {

// The page, UTF-8, complete in itself: no script, nothing is fetched.
tString LogPage(const std::vector<std::shared_ptr<tExchange>>& oExchanges, const tString& oTitle,
                time_t oNow);

} // namespace zat::tool
