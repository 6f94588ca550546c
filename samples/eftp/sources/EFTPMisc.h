// The parameter store with its codec: what the EFTP commands are built from and parsed into.
#pragma once
#include "EFTPIds.h"
#include "gabids.h"
#include "squeezet.h"
