// The groups of rows. Each measures this system and its limit in turn and adds its rows.
#pragma once
#include "report.h"

namespace bench {

void MeasureDelay(Report& report);     // a block's way from the module to the till
void MeasureCalls(Report& report);     // system calls to read a block
void MeasureWaiting(Report& report);   // what a wait of 10 s costs
void MeasureStarting(Report& report);  // starting and reaping a module
void MeasureSale(Report& report);      // a whole sale against the simulated terminal
void MeasureTills(Report& report);     // many tills at once
void MeasureFunctions(Report& report); // the functions, measured by zat_bench

} // namespace bench
