// Resampling weights of the CPU renderer: for every output sample of one axis, the input samples it reads
// and their weights. The scaling filters, the field split of interlaced images and the chroma filters of the
// subsampled formats are all built here as tap lists, so that one filtering loop serves them all.
#pragma once

#include <utility>
#include <vector>

namespace sk {

// A fixed number of taps per output sample (shorter lists are padded with zero weights); indices are
// always inside the input, the edges being clamped.
struct Taps {
  int count = 0;
  std::vector<int> index;
  std::vector<float> weight;
  bool identity = false;  // output i is input i

  const int* IndexOf(int i) const { return index.data() + std::size_t(i) * std::size_t(count); }
  const float* WeightOf(int i) const { return weight.data() + std::size_t(i) * std::size_t(count); }
  // True when some output reads more than one input, so that alpha must be premultiplied first.
  bool Mixes() const { return count > 1; }
};

using TapList = std::vector<std::pair<int, float>>;

// Builds Taps from one list per output sample.
Taps MakeTaps(const std::vector<TapList>& lists);

enum class Filter { kNearest, kBilinear, kArea };

// Scaling nIn samples to nOut with the filter; samples are centred (sample k covers k .. k + 1). Equal
// sizes give the identity whatever the filter. With `fields` set the even and odd samples (rows of the two
// fields) are scaled apart, each output field reading only its own input field.
Taps ScaleTaps(int nOut, int nIn, Filter filter, bool fields);

// The normalised weights of a triangle filter of half-width 2 centred at `centre` over samples 0 .. n - 1:
// the chroma down-sampling filter ([1 2 1] / 4 for a co-sited centre, [1 3 3 1] / 8 for a centre halfway).
TapList TriangleTaps(double centre, int n);

// Linear interpolation at `position` between the samples around it, clamped to 0 .. n - 1.
TapList LinearTaps(double position, int n);

}  // namespace sk
