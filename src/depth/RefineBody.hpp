// SPDX-License-Identifier: Apache-2.0
// Kernels of the refinement: see KernelForms.hpp. Included by Refine.cpp only, several times.

constexpr int lanes = STEREO_DEPTH_LANES;
typedef float Floats __attribute__((vector_size(4 * STEREO_DEPTH_LANES)));
typedef std::int32_t Ints __attribute__((vector_size(4 * STEREO_DEPTH_LANES)));

inline Floats load(const float* from) {
  Floats value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

inline void store(float* to, Floats value) { std::memcpy(to, &value, sizeof value); }

inline Floats masked(Floats value, Ints mask) {
  return reinterpret_cast<Floats>(reinterpret_cast<Ints>(value) & mask);
}

inline Floats absolute(Floats value) {
  return reinterpret_cast<Floats>(reinterpret_cast<Ints>(value) & 0x7fffffff);
}

void termsOfRow(const RefineInput& input, int row, Plane& disparity, RefineTerms& terms) {
  constexpr int widest = 2 * 4096 + 1024;
  float leftRow[widest];
  float rightRow[widest];
  const std::uint16_t* const leftSamples = input.left + static_cast<std::ptrdiff_t>(row) * input.leftWidth;
  const std::uint16_t* const rightSamples = input.right + static_cast<std::ptrdiff_t>(row) * input.rightWidth;
  const std::uint8_t* const rightSeen = input.rightSeen + static_cast<std::ptrdiff_t>(row) * input.rightWidth;
  for (int k = 0; k < input.leftWidth; ++k) {
    leftRow[k] = static_cast<float>(leftSamples[k]) * 0.0625F - 128.0F;
  }
  const float gain = input.gain * 0.0625F;
  for (int k = 0; k < input.rightWidth; ++k) {
    rightRow[k] = static_cast<float>(rightSamples[k]) * gain - 128.0F;
  }
  float* const d = disparity.row(row);
  const auto samples = static_cast<float>(input.samples);
  const auto last = static_cast<float>(input.rightWidth - 3);
  for (int x = 0; x < input.width; ++x) {
    float sums[RefineTerms::count] = {};
    if (d[x] != noDisparity) {
      for (int k = 0; k < input.samples; ++k) {
        const int at = x * input.samples + k;
        const float place = static_cast<float>(at + input.rightFirst) - samples * d[x];
        if (!(place >= 2.0F && place < last)) {
          d[x] = noDisparity;
          break;
        }
        const int i = static_cast<int>(place);
        if ((rightSeen[i - 1] & rightSeen[i + 2]) == 0) {
          d[x] = noDisparity;
          break;
        }
        const float t = place - static_cast<float>(i);
        const float r = rightRow[i] + t * (rightRow[i + 1] - rightRow[i]);
        const float before = rightRow[i - 1] + t * (rightRow[i] - rightRow[i - 1]);
        const float after = rightRow[i + 1] + t * (rightRow[i + 2] - rightRow[i + 1]);
        const float gr = 0.5F * (after - before);
        const int under = at > 0 ? at - 1 : 0;
        const int over = at + 1 < input.leftWidth ? at + 1 : at;
        const float l = leftRow[at];
        const float gl = 0.5F * (leftRow[over] - leftRow[under]);
        const float g = 0.5F * (gl + gr);
        sums[RefineTerms::sumL] += l;
        sums[RefineTerms::sumR] += r;
        sums[RefineTerms::sumLL] += l * l;
        sums[RefineTerms::sumRR] += r * r;
        sums[RefineTerms::sumLR] += l * r;
        sums[RefineTerms::sumG] += g;
        sums[RefineTerms::sumGL] += g * l;
        sums[RefineTerms::sumGR] += g * r;
        sums[RefineTerms::sumGG] += gl * gr;
      }
    }
    for (int k = 0; k < RefineTerms::count; ++k) {
      terms.planes[k].row(row)[x] = sums[k];
    }
  }
}

void solveRow(const RefineInput& input, int row, const Plane& disparity, const RefineTerms& terms, float like,
              RefineResult& result) {
  const float* const d = disparity.row(row);
  const Floats limit = Floats{} + like;
  const Floats zero = Floats{};
  const Floats one = zero + 1.0F;
  const auto samples = static_cast<float>(input.samples);
  for (int x = 0; x < input.width; x += lanes) {
    const Floats own = load(d + x);
    bool any = false;
    for (int k = 0; k < lanes; ++k) {
      any = any || own[k] != noDisparity;
    }
    Floats found = own;
    Floats sigma = zero;
    Floats correlation = zero;
    Floats texture = zero;
    Floats n = zero;
    if (any) {
      Floats sums[RefineTerms::count] = {};
      for (int dy = -windowReach; dy <= windowReach; ++dy) {
        const float* const line = disparity.row(row + dy) + x - windowReach;
        const float* planes[RefineTerms::count];
        for (int k = 0; k < RefineTerms::count; ++k) {
          planes[k] = terms.planes[k].row(row + dy) + x - windowReach;
        }
        for (int dx = 0; dx <= 2 * windowReach; ++dx) {
          const Ints member = absolute(load(line + dx) - own) <= limit;
          n = n + masked(one, member);
#pragma GCC unroll 9
          for (int k = 0; k < RefineTerms::count; ++k) {
            sums[k] = sums[k] + masked(load(planes[k] + dx), member);
          }
        }
      }
      const Floats count = n * samples;
      const Floats meanL = sums[RefineTerms::sumL] / count;
      const Floats meanR = sums[RefineTerms::sumR] / count;
      const Floats meanG = sums[RefineTerms::sumG] / count;
      Floats varL = sums[RefineTerms::sumLL] - sums[RefineTerms::sumL] * meanL;
      Floats varR = sums[RefineTerms::sumRR] - sums[RefineTerms::sumR] * meanR;
      varL = varL > 1e-3F ? varL : zero + 1e-3F;
      varR = varR > 1e-3F ? varR : zero + 1e-3F;
      const Floats both = sums[RefineTerms::sumLR] - sums[RefineTerms::sumL] * meanR;
      Floats gain;
      Floats scale;
      for (int k = 0; k < lanes; ++k) {
        gain[k] = std::sqrt(varL[k] / varR[k]);
        scale[k] = std::sqrt(varL[k] * varR[k]);
      }
      gain = gain < 0.5F ? zero + 0.5F : gain;
      gain = gain > 2.0F ? zero + 2.0F : gain;
      correlation = both / scale;
      const Floats gl = sums[RefineTerms::sumGL] - meanG * sums[RefineTerms::sumL];
      const Floats gr = sums[RefineTerms::sumGR] - meanG * sums[RefineTerms::sumR];
      const Floats error = gl - gain * gr;
      Floats gg = sums[RefineTerms::sumGG] - meanG * sums[RefineTerms::sumG];
      texture = gg / count;
      gg = gg > 1e-2F ? gg : zero + 1e-2F;
      // L(X) = R(X - D - delta): delta = -sum g (L - gain R) / sum g^2, in samples.
      Floats delta = zero - error / (gg * samples);
      delta = delta > largestStep ? zero + largestStep : delta;
      delta = delta < -largestStep ? zero - largestStep : delta;
      Floats left = varL + gain * gain * varR - 2.0F * gain * both - error * error / gg;
      left = left > 0.0F ? left : zero;
      // Interpolation and smoothing leave about half as many independent samples.
      const Floats variance = 2.0F * left / (count * gg);
      for (int k = 0; k < lanes; ++k) {
        sigma[k] = std::sqrt(variance[k]) / samples;
      }
      found = own != noDisparity ? own + delta : own;
    }
    store(result.disparity.row(row) + x, found);
    store(result.sigma.row(row) + x, sigma);
    store(result.correlation.row(row) + x, correlation);
    store(result.texture.row(row) + x, texture);
    store(result.support.row(row) + x, n);
  }
}

void smoothRow(int width, int row, const Plane& disparity, int reach, float like, Plane& smoothed) {
  const Floats limit = Floats{} + like;
  const Floats zero = Floats{};
  const Floats two = zero + 2.0F;
  const float* const d = disparity.row(row);
  for (int x = 0; x < width; x += lanes) {
    const Floats own = load(d + x);
    Floats sum = zero;
    Floats n = zero + 1.0F;
    for (int dy = 0; dy <= reach; ++dy) {
      const float* const below = disparity.row(row + dy) + x;
      const float* const above = disparity.row(row - dy) + x;
      for (int dx = dy == 0 ? 1 : -reach; dx <= reach; ++dx) {
        const Floats a = load(below + dx) - own;
        const Floats b = load(above - dx) - own;
        const Floats both = a + b;
        const Ints member = (absolute(a) <= limit) & (absolute(b) <= limit);
        sum = sum + masked(both, member);
        n = n + masked(two, member);
      }
    }
    store(smoothed.row(row) + x, own + sum / n);
  }
}
