/* The C baseline for bench_overhead.py: median time of one joint-angle query
 * and of one streamed joint target, through the library, against ka-sim.
 *   round_trip PORT QUERIES FRAMES   prints "query_us stream_us" */
#define _POSIX_C_SOURCE 200809L
#include "ka_api.h"

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

static double now_us(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec * 1e6 + (double)t.tv_nsec / 1e3;
}

static int by_value(const void *a, const void *b) {
    const double x = *(const double *)a, y = *(const double *)b;
    return (x > y) - (x < y);
}

static double median(double *samples, int count) {
    qsort(samples, (size_t)count, sizeof *samples, by_value);
    return samples[count / 2];
}

int main(int argc, char **argv) {
    const int port = argc > 1 ? atoi(argv[1]) : 8080;
    const int queries = argc > 2 ? atoi(argv[2]) : 2000;
    const int frames = argc > 3 ? atoi(argv[3]) : 20000;
    float joints[KA_JOINTS] = {0};
    double *samples = malloc(sizeof(double) * (size_t)(queries > frames ? queries : frames));
    ka_robot_handle *arm;
    double query_us, stream_us;

    ka_init(KA_THREAD_MODE_TRIPLE);
    arm = ka_create_robot_arm("127.0.0.1", port);
    if (!samples || !arm || arm->id < 1) return 1;
    for (int i = 0; i < queries; ++i) {
        const double start = now_us();
        if (ka_get_joint_degree(arm, joints) != 0) return 1;
        samples[i] = now_us() - start;
    }
    query_us = median(samples, queries);
    for (int i = 0; i < frames; ++i) {
        const double start = now_us();
        if (ka_movej_canfd(arm, joints, false, 0.0f) != 0) return 1;
        samples[i] = now_us() - start;
    }
    stream_us = median(samples, frames);
    printf("%.3f %.3f\n", query_us, stream_us);
    ka_destory();
    free(samples);
    return 0;
}
