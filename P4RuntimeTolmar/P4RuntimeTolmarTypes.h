// Records, row classes and row operations of every table kind.
#pragma once

#include "P4RuntimeTolmar/OutputTables.h"
#include "P4RuntimeTolmar/kinds/L3IifTH3Rows.h"
#include "P4RuntimeTolmar/kinds/L3TunnelTH3Rows.h"
#include "P4RuntimeTolmar/kinds/MyStationTcamTH3Rows.h"
