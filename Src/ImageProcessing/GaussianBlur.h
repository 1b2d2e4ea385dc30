// The Gaussian blur's internals: its recursion coefficients and an entry point that chooses the kernel path,
// so that the tests can run both paths on any device.
#pragma once

#include <boost/shared_ptr.hpp>

#include "Lumora/ImageOperations.h"

namespace LM {

// The coefficients of the second-order recursion for one sigma, in single precision as the kernels use them.
struct GaussianCoefficients {
  float a0, a1, a2, a3, b1, b2;
};
GaussianCoefficients ComputeGaussianCoefficients(float sigma);

// The largest sigma a pass uses: larger ones are taken as it, where the single-precision recursion still has
// unit gain.
constexpr float kMaximumGaussianSigma = 1024.0f;

enum class GaussianBlurPath {
  kByDevice,   // the AMD path on an AMD OpenCL device, the recursive path elsewhere
  kRecursive,  // the recursive kernels, one work item per row or column
  kAMD,        // column half passes and transposes, as AMD OpenCL devices run them
};

int GaussianBlurOnPath(const boost::shared_ptr<Device>& device, const void* source, int sourceRowBytes,
                       int sourceWidth, int sourceHeight, void* destination, int destinationRowBytes,
                       int destinationWidth, int destinationHeight, PixelFormat format, float sigmaX,
                       float sigmaY, bool edgeFlag, SK_BlurDirection direction, GaussianBlurPath path);

}  // namespace LM
