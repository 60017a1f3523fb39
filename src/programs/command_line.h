// The vemo program's run: argument counts, frame input, the flow run, the
// .flo output and the optional evaluation against a reference flow.
#pragma once

// Runs the program for the given command line and returns the exit status
// (0 at the normal end). Failures print their message and throw; the
// program's main turns that into status 1.
int runCommandLine(int argc, char** argv);
