/// How far the tests that try every input go.
#pragma once

namespace OX {

/// From one value of the outermost input to the next. The thread sanitizer makes such loops a
/// hundred times slower and has nothing to find in functions without state: it gets a part of them.
#ifdef __SANITIZE_THREAD__
constexpr int kExhaustiveStep = 32;
#else
constexpr int kExhaustiveStep = 1;
#endif

}  // namespace OX
