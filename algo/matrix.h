// The few matrix operations of the kinematics on ka_matrix_t (up to 4x4):
// frames, rotations and their products. Single precision storage; products
// are accumulated in double. Row and column counts outside the record's
// capacity are clamped to it, and every producer writes zeros outside the
// counts. Nothing allocates.
#pragma once

#include "ka_api.h"

ka_matrix_t zero_matrix(int rows, int cols);
ka_matrix_t unit_matrix(int n);
// A * B, rows(A) x cols(B); each product of two floats is summed in double.
ka_matrix_t matrix_m(const ka_matrix_t &A, const ka_matrix_t &B);
// Inverse of a square matrix (Eigen, in double). No singularity test: a
// singular input gives non-finite entries. A non-square input gives zeros.
ka_matrix_t matrix_inv(const ka_matrix_t &A);
// Inverse of a 4x4 rigid transform via the cofactors of its rotation block.
ka_matrix_t matrix_inv_coordinate_system(const ka_matrix_t &T);
// The 3x3 rotation block of a 4x4 transform.
ka_matrix_t matrix_T2R(const ka_matrix_t &T);

extern "C" {
// +1, -1 or 0.
KA_API int ka_sign(float x);
}
