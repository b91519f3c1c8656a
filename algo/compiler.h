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

// Hide an integer's value from the optimiser. A condition turned into a
// number and hidden this way is used as a number: otherwise the compiler
// turns the arithmetic selections it feeds back into branches, which are
// unpredictable when the condition depends on random data.
#if defined(__GNUC__)
#define KA_OPAQUE(x) __asm__("" : "+r"(x))
#else
#define KA_OPAQUE(x) ((void)(x))
#endif
