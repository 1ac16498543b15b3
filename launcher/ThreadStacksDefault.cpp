#include "launcher/ThreadStacks.h"

void LimitThreadStacks() {}

void GuardThreadStack() {}
