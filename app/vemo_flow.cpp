// vemo-flow: see driver/flow_command.h. Failures have printed their message
// before they reach here; main only turns them into exit status 1.
#include <cstdio>
#include <exception>
#include <new>

#include "backends/backend.h"
#include "programs/flow_command.h"

int main(int argc, char** argv) {
  int status = 1;
  try {
    status = runFlowProgram(argc, argv);
  } catch (const vemo::BackendError&) {
    // The backend printed its message where it failed.
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "vemo-flow: out of memory\n");
  } catch (const std::exception& e) {
    std::fprintf(stderr, "vemo-flow: %s\n", e.what());
  } catch (...) {
    // Library exceptions carry no text; their message is already printed.
  }
  std::fflush(stdout);
  return status;
}
