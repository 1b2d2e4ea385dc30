#include "Resampling.h"

#include <algorithm>
#include <cmath>

namespace sk {
namespace {

int Clamp(int k, int n) {
  return std::min(std::max(k, 0), n - 1);
}

TapList NearestTaps(int i, int nOut, int nIn) {
  const int k = int(std::floor((double(i) + 0.5) * double(nIn) / double(nOut)));
  return {{Clamp(k, nIn), 1.0f}};
}

TapList BilinearTaps(int i, int nOut, int nIn) {
  return LinearTaps((double(i) + 0.5) * double(nIn) / double(nOut) - 0.5, nIn);
}

// The share of each input sample in the output sample's footprint [i, i + 1) × nIn / nOut.
TapList AreaTaps(int i, int nOut, int nIn) {
  const double ratio = double(nIn) / double(nOut);
  const double a = double(i) * ratio;
  const double b = double(i + 1) * ratio;
  TapList taps;
  for (int k = int(std::floor(a)); double(k) < b; ++k) {
    const double overlap = std::min(b, double(k + 1)) - std::max(a, double(k));
    if (overlap > 0) taps.emplace_back(Clamp(k, nIn), float(overlap / ratio));
  }
  return taps;
}

TapList FilterTaps(Filter filter, int i, int nOut, int nIn) {
  switch (filter) {
    case Filter::kNearest:
      return NearestTaps(i, nOut, nIn);
    case Filter::kBilinear:
      return BilinearTaps(i, nOut, nIn);
    case Filter::kArea:
      return AreaTaps(i, nOut, nIn);
  }
  return {};
}

}  // namespace

Taps MakeTaps(const std::vector<TapList>& lists) {
  Taps taps;
  for (const TapList& list : lists) taps.count = std::max(taps.count, int(list.size()));
  taps.count = std::max(taps.count, 1);
  taps.index.assign(lists.size() * std::size_t(taps.count), 0);
  taps.weight.assign(lists.size() * std::size_t(taps.count), 0.0f);
  for (std::size_t i = 0; i < lists.size(); ++i) {
    for (std::size_t t = 0; t < lists[i].size(); ++t) {
      taps.index[i * std::size_t(taps.count) + t] = lists[i][t].first;
      taps.weight[i * std::size_t(taps.count) + t] = lists[i][t].second;
    }
    // Padding reads a sample the output reads anyway, with weight 0.
    for (std::size_t t = lists[i].size(); t < std::size_t(taps.count) && !lists[i].empty(); ++t) {
      taps.index[i * std::size_t(taps.count) + t] = lists[i][0].first;
    }
  }
  return taps;
}

Taps ScaleTaps(int nOut, int nIn, Filter filter, bool fields) {
  std::vector<TapList> lists(std::size_t(std::max(nOut, 0)));
  if (nOut == nIn) {
    for (int i = 0; i < nOut; ++i) lists[std::size_t(i)] = {{i, 1.0f}};
    Taps taps = MakeTaps(lists);
    taps.identity = true;
    return taps;
  }
  if (!fields || nIn < 2) {
    for (int i = 0; i < nOut; ++i) lists[std::size_t(i)] = FilterTaps(filter, i, nOut, nIn);
    return MakeTaps(lists);
  }
  for (int field = 0; field < 2; ++field) {
    const int fieldIn = (nIn - field + 1) / 2;
    const int fieldOut = (nOut - field + 1) / 2;
    for (int m = 0; m < fieldOut; ++m) {
      TapList list = FilterTaps(filter, m, fieldOut, fieldIn);
      for (auto& tap : list) tap.first = 2 * tap.first + field;
      lists[std::size_t(2 * m + field)] = std::move(list);
    }
  }
  return MakeTaps(lists);
}

TapList TriangleTaps(double centre, int n) {
  TapList taps;
  float sum = 0;
  for (int k = int(std::floor(centre)) - 2; k <= int(std::ceil(centre)) + 2; ++k) {
    const double w = 1.0 - std::fabs(double(k) - centre) / 2.0;
    if (w <= 0) continue;
    taps.emplace_back(Clamp(k, n), float(w));
    sum += float(w);
  }
  for (auto& tap : taps) tap.second /= sum;
  return taps;
}

TapList LinearTaps(double position, int n) {
  const double k0 = std::floor(position);
  const float f = float(position - k0);
  if (f == 0.0f) return {{Clamp(int(k0), n), 1.0f}};
  return {{Clamp(int(k0), n), 1.0f - f}, {Clamp(int(k0) + 1, n), f}};
}

}  // namespace sk
