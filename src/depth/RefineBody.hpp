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

inline Floats masked(Floats value, Ints mask) { return reinterpret_cast<Floats>(reinterpret_cast<Ints>(value) & mask); }

inline Floats absolute(Floats value) { return reinterpret_cast<Floats>(reinterpret_cast<Ints>(value) & 0x7fffffff); }

void termsOfRow(const RefineInput& input, int row, Plane& disparity, RefineTerms& terms) {
  constexpr int widest = 2 * 4096 + 1024;
  float leftRow[widest + 4];
  float rightRow[widest + 4];
  const std::uint16_t* const leftSamples = input.left + static_cast<std::ptrdiff_t>(row) * input.leftWidth;
  const std::uint16_t* const rightSamples = input.right + static_cast<std::ptrdiff_t>(row) * input.rightWidth;
  const std::uint8_t* const rightSeen = input.rightSeen + static_cast<std::ptrdiff_t>(row) * input.rightWidth;
  for (int k = 0; k < input.leftWidth; ++k) {
    leftRow[k + 1] = static_cast<float>(leftSamples[k]) * 0.0625F - 128.0F;
  }
  leftRow[0] = leftRow[1];  // NOLINT(clang-analyzer-core.uninitialized.Assign): every view has columns
  leftRow[input.leftWidth + 1] = leftRow[input.leftWidth];
  const float gain = input.gain * 0.0625F;
  for (int k = 0; k < input.rightWidth; ++k) {
    rightRow[k] = static_cast<float>(rightSamples[k]) * gain - 128.0F;
  }
  float* const d = disparity.row(row);
  const int samples = input.samples;
  const auto scale = static_cast<float>(samples);
  const int last = input.rightWidth - 4;
  for (int x = 0; x < input.width; ++x) {
    // Where the first sample is: the second one is a column further.
    const float place = static_cast<float>(x * samples + input.rightFirst) - scale * d[x];
    const bool isInside = place >= 2.0F && place < static_cast<float>(last);
    const int i = isInside ? static_cast<int>(place) : 2;
    const bool isSeen = isInside && (rightSeen[i - 1] & rightSeen[i + samples + 1]) != 0;
    d[x] = isSeen ? d[x] : noDisparity;
  }
  for (int block = 0; block < input.width; block += lanes) {
    // Five neighboring samples of the right view, from one before the first sample, and four of the left one.
    float r[5][lanes];
    float l[4][lanes];
    float part[lanes];
    for (int lane = 0; lane < lanes; ++lane) {
      const int x = block + lane;
      const bool has = x < input.width && d[x] != noDisparity;
      const int at = has ? x * samples : 0;
      const float place = has ? static_cast<float>(at + input.rightFirst) - scale * d[x] : 2.0F;
      const int i = static_cast<int>(place);
      part[lane] = place - static_cast<float>(i);
      const float* const right = rightRow + i - 1;
      const float* const left = leftRow + at;
      // NOLINTBEGIN(clang-analyzer-core.uninitialized.Assign): places lie within both rows
      r[0][lane] = right[0];
      r[1][lane] = right[1];
      r[2][lane] = right[2];
      r[3][lane] = right[3];
      r[4][lane] = right[4];
      l[0][lane] = left[0];
      l[1][lane] = left[1];
      l[2][lane] = left[2];
      l[3][lane] = left[3];
      // NOLINTEND(clang-analyzer-core.uninitialized.Assign)
    }
    Floats sums[RefineTerms::count] = {};
    const Floats t = load(part);
    for (int k = 0; k < samples; ++k) {
      const Floats r0 = load(r[k]);
      const Floats r1 = load(r[k + 1]);
      const Floats r2 = load(r[k + 2]);
      const Floats r3 = load(r[k + 3]);
      const Floats R = r1 + t * (r2 - r1);
      const Floats GR = 0.5F * ((r2 - r0) + t * ((r3 - r1) - (r2 - r0)));
      const Floats L = load(l[k + 1]);
      const Floats GL = 0.5F * (load(l[k + 2]) - load(l[k]));
      const Floats g = 0.5F * (GL + GR);
      sums[RefineTerms::sumL] = sums[RefineTerms::sumL] + L;
      sums[RefineTerms::sumR] = sums[RefineTerms::sumR] + R;
      sums[RefineTerms::sumLL] = sums[RefineTerms::sumLL] + L * L;
      sums[RefineTerms::sumRR] = sums[RefineTerms::sumRR] + R * R;
      sums[RefineTerms::sumLR] = sums[RefineTerms::sumLR] + L * R;
      sums[RefineTerms::sumG] = sums[RefineTerms::sumG] + g;
      sums[RefineTerms::sumGL] = sums[RefineTerms::sumGL] + g * L;
      sums[RefineTerms::sumGR] = sums[RefineTerms::sumGR] + g * R;
      sums[RefineTerms::sumGG] = sums[RefineTerms::sumGG] + GL * GR;
    }
    for (int k = 0; k < RefineTerms::count; ++k) {
      store(terms.planes[k].row(row) + block, sums[k]);
    }
  }
}

// Mean of (L - gain R - offset)^2 over the samples of the window's middle column.
inline Floats misfitOfMiddle(int row, int x, Floats own, Floats limit, int rowStep, const Plane& disparity,
                             const RefineTerms& terms, float samples, Floats gain, Floats offset) {
  const Floats zero = Floats{};
  Floats n = zero;
  Floats sum = zero;
  for (int dy = -windowReach; dy <= windowReach; dy += rowStep) {
    const auto term = [&](int k) { return load(terms.planes[k].row(row + dy) + x); };
    const Ints member = absolute(load(disparity.row(row + dy) + x) - own) <= limit;
    const Floats squares =
        term(RefineTerms::sumLL) + gain * gain * term(RefineTerms::sumRR) - 2.0F * gain * term(RefineTerms::sumLR);
    const Floats error = squares - 2.0F * offset * (term(RefineTerms::sumL) - gain * term(RefineTerms::sumR));
    n = n + masked(zero + samples, member);
    sum = sum + masked(error, member);
  }
  return sum / n + offset * offset;
}

void solveRow(const RefineInput& input, int row, const Plane& disparity, const RefineTerms& terms, float like,
              const WindowStep& step, RefineResult& result) {
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
    Floats misfit = zero;
    if (any) {
      Floats sums[RefineTerms::count] = {};
      for (int dy = -windowReach; dy <= windowReach; dy += step.rows) {
        const float* const line = disparity.row(row + dy) + x - windowReach;
        const float* planes[RefineTerms::count];
        for (int k = 0; k < RefineTerms::count; ++k) {
          planes[k] = terms.planes[k].row(row + dy) + x - windowReach;
        }
        for (int dx = 0; dx <= 2 * windowReach; dx += step.columns) {
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
      if (step.columns == 1) {
        misfit = misfitOfMiddle(row, x, own, limit, step.rows, disparity, terms, samples, gain, meanL - gain * meanR) *
                 count / varL;
      }
    }
    store(result.disparity.row(row) + x, found);
    store(result.sigma.row(row) + x, sigma);
    store(result.correlation.row(row) + x, correlation);
    store(result.texture.row(row) + x, texture);
    store(result.misfit.row(row) + x, misfit);
    const Floats trusted = 1.0F / (sigma * sigma + 1e-4F);
    store(result.weight.row(row) + x, masked(trusted, (own != noDisparity) & (correlation > 0.5F)));
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

void fuseRow(int width, int row, const Plane& disparity, const Plane& weight, const FuseRule& rule, Plane& fused,
             Plane& fusedWeight) {
  const int step = rule.step;
  constexpr int reach = 2;
  const Floats zero = Floats{};
  const float* const d = disparity.row(row);
  const float* const w = weight.row(row);
  for (int x = 0; x < width; x += lanes) {
    const Floats own = load(d + x);
    const Floats ownWeight = load(w + x);
    const Floats variance = 1.0F / (ownWeight + 1e-6F);
    Floats sum = zero;
    Floats total = ownWeight;
    for (int dy = 0; dy <= reach; ++dy) {
      const float* const below = disparity.row(row + dy * step) + x;
      const float* const above = disparity.row(row - dy * step) + x;
      const float* const belowWeight = weight.row(row + dy * step) + x;
      const float* const aboveWeight = weight.row(row - dy * step) + x;
      for (int dx = dy == 0 ? 1 : -reach; dx <= reach; ++dx) {
        const std::ptrdiff_t aside = static_cast<std::ptrdiff_t>(dx) * step;
        const Floats a = load(below + aside) - own;
        const Floats b = load(above - aside) - own;
        const Floats wa = load(belowWeight + aside);
        const Floats wb = load(aboveWeight - aside);
        const Floats pair = wa < wb ? wa : wb;
        const auto across = static_cast<float>(dx * dx);
        const auto down = static_cast<float>(dy * dy);
        const Floats middle = 0.5F * (a + b) + own * (across * rule.bendAcross + down * rule.bendDown);
        const Ints member = (pair > 0.0F) & (absolute(a - b) <= likePair) &
                            (middle * middle <= agreement * (variance + 0.5F / (pair + 1e-6F)));
        const Floats share = masked(2.0F * pair, member);
        sum = sum + share * masked(middle, member);
        total = total + share;
      }
    }
    const Floats moved = own + sum / (total + 1e-6F);
    store(fused.row(row) + x, own != noDisparity ? moved : own);
    store(fusedWeight.row(row) + x, total);
  }
}
