#include "tests/support/OtherUnit.h"

#include "common/util/Trim.h"
#include "environment/Logging.h"

void* OtherUnitsLogCall() { return reinterpret_cast<void*>(&__LOG__A); }

void* OtherUnitsTrim() { return reinterpret_cast<void*>(&trim); }
