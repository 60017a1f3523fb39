// vemo-eval: see driver/eval_command.h. Failures have printed their message
// before they reach here; main only turns them into exit status 1.
#include <cstdio>
#include <exception>
#include <new>

#include "programs/eval_command.h"

int main(int argc, char** argv) {
  int status = 1;
  try {
    status = runEvalProgram(argc, argv);
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "vemo-eval: out of memory\n");
  } catch (const std::exception& e) {
    std::fprintf(stderr, "vemo-eval: %s\n", e.what());
  } catch (...) {
    // Library exceptions carry no text; their message is already printed.
  }
  std::fflush(stdout);
  return status;
}
