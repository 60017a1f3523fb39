// OpenMP threads that wait at the end of a parallel loop either spin or
// sleep. Spinning is slightly faster on an idle machine, but as soon as
// anything else wants the cores (a compiler, a second flow run, a browser),
// spinning threads steal time from the thread everyone waits for and a run
// becomes 3 to 30 times slower (measured on 2 cores: the variational part
// at 640 x 480 took 1.2 s spinning on an idle machine, 7 to 87 s spinning
// under load, 2.6 to 4.6 s sleeping under the same load).
//
// The programs therefore sleep by default. The OpenMP runtime reads its
// policy once, when it is loaded, so the policy is set in the environment and
// the program re-executes itself once. An explicit OMP_WAIT_POLICY or
// GOMP_SPINCOUNT from the user is left alone.
#pragma once

namespace flowcore {

// Call first in main. Returns normally when nothing had to change or the
// re-execution was not possible.
void preferSleepingThreads(char** argv);

}  // namespace flowcore
