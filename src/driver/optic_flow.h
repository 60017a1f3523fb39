// COpticFlow: host-side I/O, colour coding and error measures of flow
// fields. A flow field is a CTensor<float> with two planes: plane 0 the
// horizontal component u, plane 1 the vertical component v, in pixels.
#pragma once

#include <string>

#include "image/tensor.h"
#include "image/write_error.h"

class COpticFlow {
 public:
  // Writes the first two planes as a Middlebury .flo file: tag "PIEH", width
  // and height as little-endian int32, then u, v float pairs row by row.
  // A name not ending in ".flo" gets a warning on stdout and is written
  // anyway. An unopenable file prints "Could not open <name>" on stdout and
  // throws EFileNotFound; a failed write removes the file and throws
  // EFileWriteFailed; a tensor with fewer than two planes (but pixels) or
  // negative sizes throws ETensorIncompatibleSize.
  static void writeMiddlebury(CTensor<float>& flow, const char* filename);

  // The same through a temporary file beside filename that is renamed onto
  // it once complete, so that no partial file ever carries the name, in
  // folders made as needed. No extension warning (the caller warns once per
  // run, not per file); the messages name filename, not the temporary.
  static void writeMiddleburyAtomically(CTensor<float>& flow, const std::string& filename);

  // Replaces flow with the contents of a .flo file (xSize = width,
  // ySize = height, zSize = 2). The tag is not compared. Sizes are checked
  // against the file length before anything is allocated: negative sizes or
  // a file holding fewer vectors than its header promises print a message on
  // stderr and throw EInvalidFileFormat, leaving flow unchanged. An
  // unopenable file prints "Could not open <name>" on stdout and throws
  // EFileNotFound.
  static void readMiddlebury(const char* filename, CTensor<float>& flow);

  // Colour-codes a flow field: image becomes width x height x 3 with whole
  // numbers 0..255 (planes R, G, B). Vectors of length 2*sqrt(2)*factor or
  // more reach full brightness.
  static void flowToImage(CTensor<float>& flow, CTensor<float>& image, float factor);

  // Colour of one scaled flow vector: hue from the direction, brightness
  // from min(1, length).
  static void cartesianToRGB(float x, float y, float& r, float& g, float& b);

  // Average space-time angular error in degrees over the pixels whose
  // reference components both have magnitude at most 1e9. NaN when no
  // pixel counts. The reference must be at least as large as the flow and
  // have two planes; otherwise prints a message and throws
  // ETensorIncompatibleSize.
  static float angularError(CTensor<float>& flow, CTensor<float>& reference);
};
