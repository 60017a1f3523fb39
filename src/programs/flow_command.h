// The vemo-flow program: named options, common image formats, pictures,
// backward flow and occlusions, and numbered sequences.
#pragma once

// Runs vemo-flow for the given command line and returns the exit status:
// 0 on success, 2 for a command-line error, 1 for any failure of the run
// (its message printed on stderr). Outputs appear atomically: a failed run
// leaves no partial file under an output's name.
int runFlowProgram(int argc, char** argv);
