// vstatserver: the message-store statistics server. See server_entry.h for the command line, the exit
// status and the VSTAT_DEBUG switch for local debug lines.
#include "server_entry.h"

int main(int argc, char** argv) { return run(joinArguments(argc, argv).c_str()); }
