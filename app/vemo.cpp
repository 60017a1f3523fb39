// vemo: dense optical flow between two PPM frames, written as a .flo file.
// Every failure has printed its message before it reaches here; main only
// turns it into exit status 1.
#include <cstdio>
#include <exception>
#include <new>

#include "backends/backend.h"
#include "programs/command_line.h"

int main(int argc, char** argv) {
  int status = 1;
  try {
    status = runCommandLine(argc, argv);
  } catch (const vemo::BackendError&) {
    // The backend printed its message where it failed.
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "vemo: out of memory\n");
  } catch (const std::exception& e) {
    std::fprintf(stderr, "vemo: %s\n", e.what());
  } catch (...) {
    // Library exceptions carry no text; their message is already printed.
  }
  std::fflush(stdout);
  return status;
}
