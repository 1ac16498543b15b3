// The process's limit for the size of its files (RLIMIT_FSIZE).

#pragma once

// Has a `write` beyond the limit fail with EFBIG instead of ending the process.
//
// The signal that comes with it, SIGXFSZ, gets a handler that does nothing.
// Unlike a signal that is ignored, one with a handler is back at its default in
// a program that is executed, so nothing changes for the children. To block the
// signal around every `write` would cost two system calls a line, and where it
// is sent to the process as a whole it would end it all the same. A signal that
// does not have its default disposition is left alone.
void SurviveFileSizeLimit();
