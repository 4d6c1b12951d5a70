// The config tables as tables of rows: the wrappers of every table kind, with their iterators and reactors.
#pragma once

#include "P4RuntimeTolmar/P4RuntimeTolmarTypes.h"
