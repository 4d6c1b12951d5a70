#pragma once

#include "tests/rows/PinnedIifRows.h"
#include "tests/rows/PinnedStationRows.h"
#include "tests/rows/PinnedTunnelRows.h"
