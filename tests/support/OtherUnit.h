// The file-local functions as another source file sees them.

#pragma once

void* OtherUnitsLogCall();
void* OtherUnitsTrim();
