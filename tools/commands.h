#pragma once

#include "tools/arguments.h"

namespace tool {

// The commands: each takes the words behind its name and answers the exit status.
int Record(Arguments arguments);
int Repair(Arguments arguments);
int Info(Arguments arguments);
int Get(Arguments arguments);
int Dump(Arguments arguments);

}  // namespace tool
