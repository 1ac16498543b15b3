#include "launcher/Heap.h"

void ShareHeap() {}

void TrimHeap() {}
