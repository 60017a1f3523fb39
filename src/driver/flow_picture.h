// Pictures of flow fields: the colour coding of COpticFlow::flowToImage at a
// chosen scale, optionally with the colour wheel beside it.
#pragma once

#include "image/tensor.h"

// Length of the longest finite, known vector of a W x H x 2 flow (0 when
// there is none). Components of 1e9 or more mark unknown flow.
float longestVector(const CTensor<float>& flow);

// Colour picture (W x H x 3, values 0..255) in which vectors of length
// maxFlow or more reach full brightness; maxFlow <= 0 uses the longest
// vector of the field. Unknown or non-finite vectors are black. With legend
// a square panel (the picture's height, at least 32 pixels) holding the
// colour wheel at the same scale is added on the right, on white. A flow
// that is not a non-empty two-plane field prints a message and throws
// ETensorIncompatibleSize.
CTensor<float> flowPicture(const CTensor<float>& flow, float maxFlow, bool legend);

// Picture of per-pixel end-point errors (W x H x 3): black for 0, through
// red and yellow to white at maxError pixels or more; pixels whose reference
// is unknown are dark blue.
CTensor<float> errorPicture(const CTensor<float>& endPointError, float maxError);
