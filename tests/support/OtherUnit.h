// The addresses of the file-local functions in another source file.

#pragma once

void* OtherUnitsLogCall();
void* OtherUnitsTrim();
