// Entry points of the descriptor matching for arrays in host memory, for
// programs that link the library. Each call creates the backend of
// makeBackend(), copies its inputs in, runs the backend-resident stage and
// copies the results back. Host arrays are dense: rows of `width` floats,
// planes one after another. Invalid sizes or null arrays print a message on
// standard error and throw std::invalid_argument.
#pragma once

namespace vemo {

// The whole matching stage (gCreateAndMatchHOG) for two frames of nChannels
// planes: u, v and Confidence (one plane each) receive the displacement and
// weight of every consistent grid match, 0 elsewhere. Prints what the stage
// prints.
void createAndMatchHOG(const float* Image1, const float* Image2, float* u, float* v, float* Confidence, int height,
                       int width, int nChannels);

// The HOG field of one image of nChannels planes: `hog` receives nOri planes.
void ComputeHOGGPU(const float* image, float* hog, int nChannels, int nOri, int height, int width);

}  // namespace vemo
