/// Which instruction set the kernels and the resampler use: by default the best of this processor.
/// Tests and benchmarks force each in turn; the results are the same to the bit. Thread-safe.
#pragma once

#include <string>
#include <vector>

namespace OX::kernels {

/// The levels of this build and this processor, slowest first: "plain" (the plain loops), then the
/// instruction sets by Highway's names: "SSE4", "AVX2", "AVX3" (AVX-512), "AVX3_DL" (with VBMI).
std::vector<std::string> levels();

/// Makes all kernels use one level from now on; "" restores the best one.
/// False, with nothing changed, for a name that levels() does not have.
/// A kernel that is running finishes at its old level.
bool useLevel(const std::string& pName);

/// Whether the level is "plain".
bool usesPlainLoops();

}  // namespace OX::kernels
