/// The instruction sets that vector code is built for: SSE4, AVX2, AVX-512, AVX-512 with VBMI.
/// Every file that includes a Highway header includes this one first, so that all agree. Any other
/// processor runs the plain loops.
#pragma once

#define HWY_WANT_AVX3_DL
#define HWY_DISABLED_TARGETS HWY_SSSE3
