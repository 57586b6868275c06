/// Which instruction set the kernels and the resampler use: by default the best of this processor.
/// Tests and benchmarks force each in turn; the results are the same to the bit.
#pragma once

#include <string>
#include <vector>

namespace OX::kernels {

/// What this build and this processor offer, slowest first: "plain" (the plain loops), then the
/// instruction sets by Highway's names, up to "SSE4", "AVX2", "AVX3" (AVX-512), "AVX3_DL" (with
/// VBMI).
std::vector<std::string> levels();

/// Makes all kernels use one level from now on; "" goes back to the best.
/// False, with nothing changed, for a name that levels() lacks.
/// A kernel that runs meanwhile ends as it began.
bool useLevel(const std::string& pName);

/// Whether "plain" is in force.
bool usesPlainLoops();

}  // namespace OX::kernels
