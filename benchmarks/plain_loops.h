/* What a careful programmer writes without a library: the same sums in the same order, left to the
 * compiler. */
#ifndef JURN_BENCHMARKS_PLAIN_LOOPS_H
#define JURN_BENCHMARKS_PLAIN_LOOPS_H

/** FIR over a history of count - 1 samples and the block; the inner loop runs over the outputs. */
void plain_fir(short* output, const short* x, int frames, const float* b, int count);
void plain_fir(float* output, const float* x, int frames, const double* b, int count);

/** One section after the other, its state in registers. px, py: three entries a section. */
void plain_cascade(const float* b, const float* a, int sections, float* x, int frames, float* px,
                   float* py);

/** The transposed direct form II in double, one section {b0, b1, b2, a0 = 1, a1, a2} after the
 * other; two states each. */
void plain_sections(const double* sos, int sections, const float* input, int frames, double* states,
                    float* output);

/** A ring whose slot is a remainder. */
void plain_mean(short* output, const short* input, int frames, short* ring, int count, float scale,
                int* sum, int* slot);

/** Spectra as pairs: x becomes x h scale. */
void plain_product(float* x, const float* h, int bins, float scale);
/** The same added to a sum: sum += x h. */
void plain_products(const float* x, const float* h, int bins, float* sum);

#endif
