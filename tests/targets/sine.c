// SPDX-License-Identifier: MIT
// Sine and cosine for programs of the PowerPC target, in place of the C library's: those set how the processor rounds by an
// instruction that older processors take for the one before it, and that the emulator of Debian 12 (QEMU 7.2) does not know.
// Only what is tried under the emulator is linked with this.
#include <stdint.h>

double sin(double x);
double cos(double x);
void sincos(double x, double *sine, double *cosine);

// Taylor's series up to an eighth of a circle: the next terms are below the last bit of a double.
static double near_sine(double x) {
    const double square = x * x;
    double term = x, sum = x;
    for (int n = 3; n <= 19; n += 2)
        sum += term *= -square / ((n - 1) * n);
    return sum;
}

static double near_cosine(double x) {
    const double square = x * x;
    double term = 1, sum = 1;
    for (int n = 2; n <= 20; n += 2)
        sum += term *= -square / ((n - 1) * n);
    return sum;
}

// @param quarters  of a circle, by which the angle is greater
static double sine_from(double x, int64_t quarters) {
    const double quarter = 1.5707963267341256,
                 rest = 6.0771005065061922e-11; // together; products of the first are exact
    const double turns = x / (quarter + rest);
    const int64_t n = (int64_t)(turns < 0 ? turns - 0.5 : turns + 0.5);
    const double left = (x - (double)n * quarter) - (double)n * rest;
    const int64_t all = n + quarters;
    const double value = (all & 1) != 0 ? near_cosine(left) : near_sine(left);
    return (all & 2) != 0 ? -value : value;
}

double sin(double x) {
    return sine_from(x, 0);
}

double cos(double x) {
    return sine_from(x, 1);
}

void sincos(double x, double *sine, double *cosine) {
    *sine = sine_from(x, 0);
    *cosine = sine_from(x, 1);
}
