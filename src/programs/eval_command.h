// The vemo-eval program: error measures of a flow file against ground truth.
#pragma once

// Runs vemo-eval for the given command line and returns the exit status:
// 0 on success, 2 for a command-line error, 1 when a file cannot be read
// or the fields differ in size (message on stderr).
int runEvalProgram(int argc, char** argv);
