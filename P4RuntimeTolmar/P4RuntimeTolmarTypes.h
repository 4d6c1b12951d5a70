// Records, row classes and row operations of the three TH3 table kinds.
#pragma once

#include "P4RuntimeTolmar/EntryRowOperations.h"
#include "P4RuntimeTolmar/EntryRows.h"
#include "P4RuntimeTolmar/Records.h"
