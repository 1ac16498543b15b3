// Keeps what coverage has been counted so far where a process is about to end
// without running its exit handlers, or to be replaced.

#pragma once

#ifdef LAUNCHER_COVERAGE
extern "C" void __gcov_dump();
inline void KeepCoverage() { __gcov_dump(); }
#else
inline void KeepCoverage() {}
#endif
