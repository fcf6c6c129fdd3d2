// Entry of the statistics server process, started by the mail server (or `vstat scan`) as
//   vstatserver <read fd> <write fd>
// with the two ends of its pipe. Everything after start-up happens on the dispatcher's threads; the
// main thread builds the server, starts it and waits.
//
// Exit status: 0 after a Terminate request or the end of the pipe (also after a protocol error that
// ends the conversation); 255 when the descriptors are missing or a dispatcher thread cannot start
// (nothing is written to the pipe then). After a statistics job the job itself ends the process with 0.
// Once Terminate or the end of the pipe has been seen the process ends within 10 s, even when a job
// thread is stuck in a system call and cannot be joined.
//
// Local debug lines are silent by default. An administrator switches them on with the environment
// variable VSTAT_DEBUG: "-" writes them to standard error, any other value names a file they are
// appended to (created with mode 0600 when missing). The file is never reached through a symbolic link
// and must be a regular file owned by the server's user; a file that cannot be opened or is refused is
// reported once on standard error and the server runs without debug lines. Control characters in
// debug lines are escaped.
//
// With VSTAT_GENTLE=1 (see stat/scan_settings.h) the whole server runs at idle I/O priority and nice 19;
// a failure to lower them is a debug line, not a reason to refuse the job.
//
// SIGPIPE is ignored: a parent that goes away makes the next write fail, which ends the send thread
// and run(), instead of killing the process.
#pragma once

#include <string>

// Joins argv[1..] each followed by one space; empty when there are no arguments.
std::string joinArguments(int argc, char** argv);

// Builds and runs the server on cmdLine; -1 when initialisation fails, 0 otherwise.
int run(const char* cmdLine);
