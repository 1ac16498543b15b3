// Saves the coverage counted so far in a process that is about to call `_exit`
// or `exec`.

#pragma once

#ifdef LAUNCHER_COVERAGE
extern "C" void __gcov_dump();
inline void KeepCoverage() { __gcov_dump(); }
#else
inline void KeepCoverage() {}
#endif
