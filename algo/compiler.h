// Compiler hints for the kinematics' hot paths.
#pragma once

// Inline every call inside the function, recursively: the per-call paths of
// the exported kinematics are compiled as one straight block, with the
// partial transform in registers and the independent latency chains (sines,
// arc tangents, square roots) free to overlap.
#if defined(__GNUC__)
#define KA_FLATTEN __attribute__((flatten))
#else
#define KA_FLATTEN
#endif
