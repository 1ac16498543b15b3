// The addresses of another source file's copies of the file-local functions.

#pragma once

void* OtherUnitsLogCall();
void* OtherUnitsTrim();
