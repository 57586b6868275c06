/// How densely exhaustive tests try their inputs.
#pragma once

namespace OX::test {

/// The step from one value of the outermost input to the next. The thread sanitizer makes such
/// loops a hundred times slower and has nothing to find in functions without state: it runs a part
/// of them.
#ifdef __SANITIZE_THREAD__
constexpr int kExhaustiveStep = 32;
#else
constexpr int kExhaustiveStep = 1;
#endif

}  // namespace OX::test
